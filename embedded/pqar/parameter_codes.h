// The codes of the parameters and the numbers of the parameter classes, by name.
//
// The high 16 bits of a parameter code are the class number, the low 16 bits a number in the class.
// parameter_table.cpp describes each parameter.
#ifndef PYORV3_EMBEDDED_PQAR_PARAMETER_CODES_H
#define PYORV3_EMBEDDED_PQAR_PARAMETER_CODES_H

#include <cstdint>

namespace embedded {

// NOLINTBEGIN(readability-identifier-naming): these are names of the file format.

// ---- Classes -------------------------------------------------------------------------------
// Formatted classes hold parameters in records and entries. The spectrum class holds channel
// contents. Classes whose highest hexadecimal digit is 4 hold unformatted bytes.

inline constexpr std::uint16_t QAR_CLS_MEASUREMENT = 0x2000;  // acquisition
inline constexpr std::uint16_t QAR_CLS_SAMPLE = 0x2001;       // measured sample
inline constexpr std::uint16_t QAR_CLS_CALIBRATION = 0x2002;  // entry: polynomial coefficient
inline constexpr std::uint16_t QAR_CLS_PROC = 0x2003;         // processing settings
inline constexpr std::uint16_t QAR_CLS_NUCLIDE = 0x2004;      // record: nuclide, entry: line
inline constexpr std::uint16_t QAR_CLS_SPECTRUM = 0x2005;     // channel contents
inline constexpr std::uint16_t QAR_CLS_PEAK = 0x2006;         // record: peak found
inline constexpr std::uint16_t QAR_CLS_RESULT = 0x2007;       // record: nuclide, entry: lines
inline constexpr std::uint16_t QAR_CLS_BLANK = 0x2008;        // blank that an analysis subtracts
inline constexpr std::uint16_t QAR_CLS_ANALCNTL = 0x2010;     // analysis control
inline constexpr std::uint16_t QAR_CLS_VORLAGEOM = 0x4005;    // sample and detector geometry

// Returns the class of a parameter code.
constexpr std::uint16_t classOf(std::uint32_t code) {
    return static_cast<std::uint16_t>(code >> 16U);
}

// ---- QAR_CLS_MEASUREMENT -------------------------------------------------------------------

inline constexpr std::uint32_t QAR_C_MEASNAME = 0x20000001;
inline constexpr std::uint32_t QAR_C_SEQUENCE = 0x20000002;
inline constexpr std::uint32_t QAR_C_OPERATOR = 0x20000003;
inline constexpr std::uint32_t QAR_C_DETECTOR = 0x20000004;
inline constexpr std::uint32_t QAR_C_INSTRUMENT = 0x20000005;
inline constexpr std::uint32_t QAR_S_INPUTNUM = 0x20000006;
inline constexpr std::uint32_t QAR_L_CHANNELS = 0x20000007;
inline constexpr std::uint32_t QAR_D_REALTIME = 0x20000010;
inline constexpr std::uint32_t QAR_D_LIVETIME = 0x20000011;
inline constexpr std::uint32_t QAR_T_ACQSTART = 0x20000012;
inline constexpr std::uint32_t QAR_T_ACQSTOP = 0x20000013;
inline constexpr std::uint32_t QAR_D_PRESETREAL = 0x20000014;
inline constexpr std::uint32_t QAR_D_PRESETLIVE = 0x20000015;
inline constexpr std::uint32_t QAR_B_ACQACTIVE = 0x20000016;
inline constexpr std::uint32_t QAR_Q_TOTALCOUNT = 0x20000017;
inline constexpr std::uint32_t QAR_F_DEADTIME = 0x20000018;
inline constexpr std::uint32_t QAR_F_AMPGAIN = 0x20000019;
inline constexpr std::uint32_t QAR_S_ADCBITS = 0x2000001A;
inline constexpr std::uint32_t QAR_F_HIGHVOLTAGE = 0x2000001B;
inline constexpr std::uint32_t QAR_C_COMMENT = 0x2000001C;
inline constexpr std::uint32_t QAR_L_LOWERDISC = 0x2000001D;
inline constexpr std::uint32_t QAR_L_UPPERDISC = 0x2000001E;
inline constexpr std::uint32_t QAR_B_PILEUPREJ = 0x2000001F;
inline constexpr std::uint32_t QAR_F_SHAPINGTIME = 0x20000020;
inline constexpr std::uint32_t QAR_Q_CLOCKTICKS = 0x20000021;
inline constexpr std::uint32_t QAR_T_CALDATE = 0x200000B6;

// ---- QAR_CLS_SAMPLE ------------------------------------------------------------------------

inline constexpr std::uint32_t QAR_C_SAMPLEID = 0x20010001;
inline constexpr std::uint32_t QAR_C_SAMPLETITLE = 0x20010002;
inline constexpr std::uint32_t QAR_C_SAMPLETYPE = 0x20010003;
inline constexpr std::uint32_t QAR_C_SAMPLEUNIT = 0x20010004;
inline constexpr std::uint32_t QAR_D_QUANTITY = 0x20010005;
inline constexpr std::uint32_t QAR_D_QUANTITYUNC = 0x20010006;
inline constexpr std::uint32_t QAR_T_SAMPLETIME = 0x20010007;
inline constexpr std::uint32_t QAR_C_LOCATION = 0x20010008;
inline constexpr std::uint32_t QAR_C_COLLECTOR = 0x20010009;
inline constexpr std::uint32_t QAR_F_DENSITY = 0x2001000A;
inline constexpr std::uint32_t QAR_F_FILLHEIGHT = 0x2001000B;
inline constexpr std::uint32_t QAR_C_CONTAINER = 0x2001000C;
inline constexpr std::uint32_t QAR_D_DISTANCE = 0x2001000D;
inline constexpr std::uint32_t QAR_B_DECAYCORR = 0x2001000E;
inline constexpr std::uint32_t QAR_D_SAMPLINGTIME = 0x2001000F;

// ---- QAR_CLS_CALIBRATION -------------------------------------------------------------------

inline constexpr std::uint32_t QAR_D_ENERGYCAL = 0x20020001;
inline constexpr std::uint32_t QAR_D_SHAPECAL = 0x20020002;
inline constexpr std::uint32_t QAR_D_EFFICCAL = 0x20020003;
inline constexpr std::uint32_t QAR_D_SHAPEEST = 0x20020004;
inline constexpr std::uint32_t QAR_S_SHAPEORIGIN = 0x20020005;
inline constexpr std::uint32_t QAR_S_DETECTORKIND = 0x20020006;
inline constexpr std::uint32_t QAR_D_ENERGYCORR = 0x20020007;
inline constexpr std::uint32_t QAR_L_CORRLINES = 0x20020008;
inline constexpr std::uint32_t QAR_T_ENERGYTIME = 0x20020010;
inline constexpr std::uint32_t QAR_T_EFFICTIME = 0x20020011;
inline constexpr std::uint32_t QAR_D_EFFICMIN = 0x20020012;
inline constexpr std::uint32_t QAR_D_EFFICMAX = 0x20020013;
inline constexpr std::uint32_t QAR_D_EFFICUNC = 0x20020014;
inline constexpr std::uint32_t QAR_D_EFFICCOVAR = 0x20020015;
inline constexpr std::uint32_t QAR_D_TOTALENERGY = 0x20020016;
inline constexpr std::uint32_t QAR_D_TOTALEFFIC = 0x20020017;
inline constexpr std::uint32_t QAR_D_TOTALUNC = 0x20020018;
inline constexpr std::uint32_t QAR_F_CALTEMPER = 0x20020028;
inline constexpr std::uint32_t QAR_C_CALGEOMETRY = 0x20020083;

// ---- QAR_CLS_PROC --------------------------------------------------------------------------

inline constexpr std::uint32_t QAR_D_PEAKLIMIT = 0x20030001;
inline constexpr std::uint32_t QAR_D_MATCHTOL = 0x20030002;
inline constexpr std::uint32_t QAR_L_FIRSTCHAN = 0x20030003;
inline constexpr std::uint32_t QAR_L_LASTCHAN = 0x20030004;
inline constexpr std::uint32_t QAR_S_SMOOTHWIDTH = 0x20030005;
inline constexpr std::uint32_t QAR_B_FITMULTIPLT = 0x20030006;
inline constexpr std::uint32_t QAR_F_CONFIDENCE = 0x20030007;
inline constexpr std::uint32_t QAR_D_MINCONF = 0x20030008;
inline constexpr std::uint32_t QAR_D_PROBALPHA = 0x20030009;
inline constexpr std::uint32_t QAR_D_PROBBETA = 0x2003000A;
inline constexpr std::uint32_t QAR_D_COVERAGE = 0x2003000B;
inline constexpr std::uint32_t QAR_D_REPORTLIMIT = 0x20030015;
inline constexpr std::uint32_t QAR_S_REPORTCOPIES = 0x20030053;

// ---- QAR_CLS_NUCLIDE -----------------------------------------------------------------------

inline constexpr std::uint32_t QAR_C_NUCLNAME = 0x20040001;
inline constexpr std::uint32_t QAR_D_HALFLIFE = 0x20040002;
inline constexpr std::uint32_t QAR_D_HALFLIFEUNC = 0x20040003;
inline constexpr std::uint32_t QAR_B_NUCLACTIVE = 0x20040004;
inline constexpr std::uint32_t QAR_S_NUCLGROUP = 0x20040005;
inline constexpr std::uint32_t QAR_C_NUCLPARENT = 0x20040006;
inline constexpr std::uint32_t QAR_D_LINEENERGY = 0x20040010;
inline constexpr std::uint32_t QAR_D_LINEYIELD = 0x20040011;
inline constexpr std::uint32_t QAR_D_LINEUNC = 0x20040012;
inline constexpr std::uint32_t QAR_D_LINEYIELDUNC = 0x20040013;
inline constexpr std::uint32_t QAR_B_LINEKEY = 0x20040014;
inline constexpr std::uint32_t QAR_D_LINESUMFACT = 0x20040015;
inline constexpr std::uint32_t QAR_D_LINESUMUNC = 0x20040016;

// ---- QAR_CLS_PEAK --------------------------------------------------------------------------

inline constexpr std::uint32_t QAR_D_PEAKENERGY = 0x20060001;
inline constexpr std::uint32_t QAR_D_PEAKCENTR = 0x20060002;
inline constexpr std::uint32_t QAR_D_PEAKFWHM = 0x20060003;
inline constexpr std::uint32_t QAR_D_PEAKAREA = 0x20060004;
inline constexpr std::uint32_t QAR_D_PEAKAREAU = 0x20060005;
inline constexpr std::uint32_t QAR_D_PEAKCONT = 0x20060006;
inline constexpr std::uint32_t QAR_D_PEAKSIGNIF = 0x20060007;
inline constexpr std::uint32_t QAR_C_PEAKNUCL = 0x20060008;
inline constexpr std::uint32_t QAR_L_PEAKLEFT = 0x20060009;
inline constexpr std::uint32_t QAR_L_PEAKRIGHT = 0x2006000A;
inline constexpr std::uint32_t QAR_F_PEAKCHISQ = 0x2006000B;
inline constexpr std::uint32_t QAR_S_PEAKORIGIN = 0x2006000C;
inline constexpr std::uint32_t QAR_D_PEAKWIDTH = 0x20060020;
inline constexpr std::uint32_t QAR_D_PEAKBROAD = 0x20060021;
inline constexpr std::uint32_t QAR_D_LEFTTAIL = 0x20060022;
inline constexpr std::uint32_t QAR_D_LEFTLENGTH = 0x20060023;
inline constexpr std::uint32_t QAR_D_RIGHTTAIL = 0x20060024;
inline constexpr std::uint32_t QAR_D_RIGHTLENGTH = 0x20060025;
inline constexpr std::uint32_t QAR_D_PEAKDRIFT = 0x20060026;
inline constexpr std::uint32_t QAR_D_CONTLEVEL = 0x20060027;
inline constexpr std::uint32_t QAR_D_CONTSLOPE = 0x20060028;
inline constexpr std::uint32_t QAR_D_CONTCURVE = 0x20060029;
inline constexpr std::uint32_t QAR_D_STEPHEIGHT = 0x2006002A;
inline constexpr std::uint32_t QAR_D_STEPCENTR = 0x2006002B;
inline constexpr std::uint32_t QAR_D_STEPWIDTH = 0x2006002C;
inline constexpr std::uint32_t QAR_D_EDGEHEIGHT = 0x2006002D;
inline constexpr std::uint32_t QAR_D_EDGECENTR = 0x2006002E;
inline constexpr std::uint32_t QAR_D_EDGEWIDTH = 0x2006002F;
inline constexpr std::uint32_t QAR_L_PEAKFREEDOM = 0x20060030;
inline constexpr std::uint32_t QAR_D_SHAPECHISQ = 0x20060031;
inline constexpr std::uint32_t QAR_D_MINORCENTR = 0x20060032;
inline constexpr std::uint32_t QAR_D_MINORWIDTH = 0x20060033;
inline constexpr std::uint32_t QAR_D_MINORAREA = 0x20060034;

// ---- QAR_CLS_RESULT ------------------------------------------------------------------------

inline constexpr std::uint32_t QAR_C_RESNUCLIDE = 0x20070001;
inline constexpr std::uint32_t QAR_L_RESLINES = 0x20070002;
inline constexpr std::uint32_t QAR_D_RESCONF = 0x20070003;
inline constexpr std::uint32_t QAR_D_RESENERGY = 0x20070004;
inline constexpr std::uint32_t QAR_D_ACTIVITY = 0x20070005;
inline constexpr std::uint32_t QAR_D_ACTIVITYUNC = 0x20070006;
inline constexpr std::uint32_t QAR_D_DETECTLIMIT = 0x20070007;
inline constexpr std::uint32_t QAR_S_RESSTATE = 0x20070008;
inline constexpr std::uint32_t QAR_C_RESREASON = 0x20070009;
inline constexpr std::uint32_t QAR_D_RESTHRESH = 0x2007000A;
inline constexpr std::uint32_t QAR_D_RESBEST = 0x2007000B;
inline constexpr std::uint32_t QAR_D_RESBESTUNC = 0x2007000C;
inline constexpr std::uint32_t QAR_D_RESLOWER = 0x2007000D;
inline constexpr std::uint32_t QAR_D_RESUPPER = 0x2007000E;
inline constexpr std::uint32_t QAR_C_RESUNIT = 0x2007000F;
inline constexpr std::uint32_t QAR_D_RESUCOUNTS = 0x20070010;
inline constexpr std::uint32_t QAR_D_RESUBLANK = 0x20070011;
inline constexpr std::uint32_t QAR_D_RESUEFFIC = 0x20070012;
inline constexpr std::uint32_t QAR_D_RESUSUMMING = 0x20070013;
inline constexpr std::uint32_t QAR_D_RESUYIELD = 0x20070014;
inline constexpr std::uint32_t QAR_D_RESUHALFLIFE = 0x20070015;
inline constexpr std::uint32_t QAR_D_RESUQUANTITY = 0x20070016;
inline constexpr std::uint32_t QAR_C_RESNOVALUE = 0x20070017;
inline constexpr std::uint32_t QAR_D_RESBLANK = 0x20070018;
inline constexpr std::uint32_t QAR_D_RESLINE = 0x20070019;
inline constexpr std::uint32_t QAR_D_RESAREA = 0x2007001A;
inline constexpr std::uint32_t QAR_D_RESAREAUNC = 0x2007001B;
inline constexpr std::uint32_t QAR_D_RESBLKAREA = 0x2007001C;
inline constexpr std::uint32_t QAR_D_RESBLKUNC = 0x2007001D;
inline constexpr std::uint32_t QAR_D_RESNULLUNC = 0x2007001E;

// ---- QAR_CLS_BLANK ----------------------------------------------------------------------------

inline constexpr std::uint32_t QAR_D_BLANKLIVE = 0x20080001;
inline constexpr std::uint32_t QAR_D_BLANKENERGY = 0x20080002;
inline constexpr std::uint32_t QAR_D_BLANKSHAPE = 0x20080003;
inline constexpr std::uint32_t QAR_L_BLANKCOUNTS = 0x20080004;

// ---- QAR_CLS_ANALCNTL ----------------------------------------------------------------------

inline constexpr std::uint32_t QAR_C_ANSEQUENCE = 0x20100005;
inline constexpr std::uint32_t QAR_T_ANALYSED = 0x20100006;
inline constexpr std::uint32_t QAR_S_ANSTEP = 0x20100007;
inline constexpr std::uint32_t QAR_L_ANSTATUS = 0x20100008;
inline constexpr std::uint32_t QAR_C_ANENGINE = 0x20100009;
inline constexpr std::uint32_t QAR_C_ANLIBRARY = 0x2010000A;
inline constexpr std::uint32_t QAR_C_ANBLANK = 0x2010000B;
inline constexpr std::uint32_t QAR_C_ANVERSION = 0x2010000C;
inline constexpr std::uint32_t QAR_D_ANBLANKLIVE = 0x2010000D;
inline constexpr std::uint32_t QAR_B_USECALFILE = 0x2010002D;
inline constexpr std::uint32_t QAR_C_CALTITLE = 0x2010004C;
inline constexpr std::uint32_t QAR_C_REPORTTITLE = 0x20100075;
inline constexpr std::uint32_t QAR_B_REPORTPRINT = 0x20100076;
inline constexpr std::uint32_t QAR_C_CALFILE = 0x20100104;

// NOLINTEND(readability-identifier-naming)

}  // namespace embedded

#endif
