"""The numbers of the file format by name: parameter classes, parameters, the engine's option word.

Made by scripts/generate from the tables of the embedded library; not to be edited. Another
library's dictionary may know more parameters and fewer: `qar.dictionary` asks the one in use.
"""

from typing import NamedTuple, Tuple


class KnownParameter(NamedTuple):
    """A parameter of the embedded dictionary, with what the dictionary's functions leave out."""

    name: str
    code: int
    type_name: str  # as the dictionary says it: byte, short, long, ..., str or Date
    length: int  # of a text: its most characters; otherwise 0
    per_entry: bool  # whether each entry of a record has a value, or each record one
    unit: str  # empty where there is none
    description: str


# ---- Classes -----------------------------------------------------------------------------------

QAR_CLS_MEASUREMENT = 0x2000  # acquisition
QAR_CLS_SAMPLE = 0x2001  # what was measured
QAR_CLS_CALIBRATION = 0x2002  # entry: polynomial coefficient
QAR_CLS_PROC = 0x2003  # processing settings
QAR_CLS_NUCLIDE = 0x2004  # record: nuclide, entry: line
QAR_CLS_SPECTRUM = 0x2005  # channel contents
QAR_CLS_PEAK = 0x2006  # record: peak found
QAR_CLS_RESULT = 0x2007  # record: nuclide identified
QAR_CLS_ANALCNTL = 0x2010  # analysis control
QAR_CLS_VORLAGEOM = 0x4005  # sample and detector geometry

# ---- Parameters --------------------------------------------------------------------------------

QAR_C_MEASNAME = 0x20000001
QAR_C_SEQUENCE = 0x20000002
QAR_C_OPERATOR = 0x20000003
QAR_C_DETECTOR = 0x20000004
QAR_C_INSTRUMENT = 0x20000005
QAR_S_INPUTNUM = 0x20000006
QAR_L_CHANNELS = 0x20000007
QAR_D_REALTIME = 0x20000010
QAR_D_LIVETIME = 0x20000011
QAR_T_ACQSTART = 0x20000012
QAR_T_ACQSTOP = 0x20000013
QAR_D_PRESETREAL = 0x20000014
QAR_D_PRESETLIVE = 0x20000015
QAR_B_ACQACTIVE = 0x20000016
QAR_Q_TOTALCOUNT = 0x20000017
QAR_F_DEADTIME = 0x20000018
QAR_F_AMPGAIN = 0x20000019
QAR_S_ADCBITS = 0x2000001A
QAR_F_HIGHVOLTAGE = 0x2000001B
QAR_C_COMMENT = 0x2000001C
QAR_L_LOWERDISC = 0x2000001D
QAR_L_UPPERDISC = 0x2000001E
QAR_B_PILEUPREJ = 0x2000001F
QAR_F_SHAPINGTIME = 0x20000020
QAR_Q_CLOCKTICKS = 0x20000021
QAR_T_CALDATE = 0x200000B6
QAR_C_SAMPLEID = 0x20010001
QAR_C_SAMPLETITLE = 0x20010002
QAR_C_SAMPLETYPE = 0x20010003
QAR_C_SAMPLEUNIT = 0x20010004
QAR_D_QUANTITY = 0x20010005
QAR_D_QUANTITYUNC = 0x20010006
QAR_T_SAMPLETIME = 0x20010007
QAR_C_LOCATION = 0x20010008
QAR_C_COLLECTOR = 0x20010009
QAR_F_DENSITY = 0x2001000A
QAR_F_FILLHEIGHT = 0x2001000B
QAR_C_CONTAINER = 0x2001000C
QAR_D_DISTANCE = 0x2001000D
QAR_B_DECAYCORR = 0x2001000E
QAR_D_ENERGYCAL = 0x20020001
QAR_D_SHAPECAL = 0x20020002
QAR_D_EFFICCAL = 0x20020003
QAR_T_ENERGYTIME = 0x20020010
QAR_T_EFFICTIME = 0x20020011
QAR_D_EFFICMIN = 0x20020012
QAR_D_EFFICMAX = 0x20020013
QAR_D_EFFICUNC = 0x20020014
QAR_F_CALTEMPER = 0x20020028
QAR_C_CALGEOMETRY = 0x20020083
QAR_D_PEAKLIMIT = 0x20030001
QAR_D_MATCHTOL = 0x20030002
QAR_L_FIRSTCHAN = 0x20030003
QAR_L_LASTCHAN = 0x20030004
QAR_S_SMOOTHWIDTH = 0x20030005
QAR_B_FITMULTIPLT = 0x20030006
QAR_F_CONFIDENCE = 0x20030007
QAR_D_MINCONF = 0x20030008
QAR_D_REPORTLIMIT = 0x20030015
QAR_S_REPORTCOPIES = 0x20030053
QAR_C_NUCLNAME = 0x20040001
QAR_D_HALFLIFE = 0x20040002
QAR_D_HALFLIFEUNC = 0x20040003
QAR_B_NUCLACTIVE = 0x20040004
QAR_S_NUCLGROUP = 0x20040005
QAR_C_NUCLPARENT = 0x20040006
QAR_D_LINEENERGY = 0x20040010
QAR_D_LINEYIELD = 0x20040011
QAR_D_LINEUNC = 0x20040012
QAR_D_LINEYIELDUNC = 0x20040013
QAR_B_LINEKEY = 0x20040014
QAR_D_PEAKENERGY = 0x20060001
QAR_D_PEAKCENTR = 0x20060002
QAR_D_PEAKFWHM = 0x20060003
QAR_D_PEAKAREA = 0x20060004
QAR_D_PEAKAREAU = 0x20060005
QAR_D_PEAKCONT = 0x20060006
QAR_D_PEAKSIGNIF = 0x20060007
QAR_C_PEAKNUCL = 0x20060008
QAR_L_PEAKLEFT = 0x20060009
QAR_L_PEAKRIGHT = 0x2006000A
QAR_F_PEAKCHISQ = 0x2006000B
QAR_S_PEAKORIGIN = 0x2006000C
QAR_C_RESNUCLIDE = 0x20070001
QAR_L_RESLINES = 0x20070002
QAR_D_RESCONF = 0x20070003
QAR_D_RESENERGY = 0x20070004
QAR_D_ACTIVITY = 0x20070005
QAR_D_ACTIVITYUNC = 0x20070006
QAR_D_DETECTLIMIT = 0x20070007
QAR_S_RESSTATE = 0x20070008
QAR_C_ANSEQUENCE = 0x20100005
QAR_T_ANALYSED = 0x20100006
QAR_S_ANSTEP = 0x20100007
QAR_L_ANSTATUS = 0x20100008
QAR_C_ANENGINE = 0x20100009
QAR_B_USECALFILE = 0x2010002D
QAR_C_CALTITLE = 0x2010004C
QAR_C_REPORTTITLE = 0x20100075
QAR_B_REPORTPRINT = 0x20100076
QAR_C_CALFILE = 0x20100104

# ---- The option word of the engine peak_search -------------------------------------------------

OPTION_SEARCH_PEAKS = 0x1
OPTION_IDENTIFY_NUCLIDES = 0x2
OPTION_LIMIT_MASK = 0xFF00
OPTION_LIMIT_SHIFT = 8

KNOWN_PARAMETERS: Tuple[KnownParameter, ...] = (
    KnownParameter("QAR_C_MEASNAME", QAR_C_MEASNAME, "str", 64, False, "",
        "Name of the measurement"),
    KnownParameter("QAR_C_SEQUENCE", QAR_C_SEQUENCE, "str", 64, False, "",
        "Name of the analysis sequence chosen for the measurement"),
    KnownParameter("QAR_C_OPERATOR", QAR_C_OPERATOR, "str", 32, False, "",
        "Operator of the measurement"),
    KnownParameter("QAR_C_DETECTOR", QAR_C_DETECTOR, "str", 24, False, "",
        "Detector that took the spectrum"),
    KnownParameter("QAR_C_INSTRUMENT", QAR_C_INSTRUMENT, "str", 24, False, "",
        "Serial number of the acquisition electronics"),
    KnownParameter("QAR_S_INPUTNUM", QAR_S_INPUTNUM, "short", 0, False, "",
        "Number of the input of the acquisition electronics"),
    KnownParameter("QAR_L_CHANNELS", QAR_L_CHANNELS, "long", 0, False, "channels",
        "Number of channels of the spectrum"),
    KnownParameter("QAR_D_REALTIME", QAR_D_REALTIME, "double", 0, False, "s",
        "Real time of the acquisition in seconds"),
    KnownParameter("QAR_D_LIVETIME", QAR_D_LIVETIME, "double", 0, False, "s",
        "Live time of the acquisition in seconds"),
    KnownParameter("QAR_T_ACQSTART", QAR_T_ACQSTART, "Date", 0, False, "",
        "Start of the acquisition"),
    KnownParameter("QAR_T_ACQSTOP", QAR_T_ACQSTOP, "Date", 0, False, "",
        "End of the acquisition"),
    KnownParameter("QAR_D_PRESETREAL", QAR_D_PRESETREAL, "double", 0, False, "s",
        "Real time in seconds at which the acquisition ends"),
    KnownParameter("QAR_D_PRESETLIVE", QAR_D_PRESETLIVE, "double", 0, False, "s",
        "Live time in seconds at which the acquisition ends"),
    KnownParameter("QAR_B_ACQACTIVE", QAR_B_ACQACTIVE, "byte", 0, False, "",
        "Whether the acquisition is running"),
    KnownParameter("QAR_Q_TOTALCOUNT", QAR_Q_TOTALCOUNT, "longlong", 0, False, "counts",
        "Sum of all channel contents"),
    KnownParameter("QAR_F_DEADTIME", QAR_F_DEADTIME, "float", 0, False, "%",
        "Dead time in percent of the real time"),
    KnownParameter("QAR_F_AMPGAIN", QAR_F_AMPGAIN, "float", 0, False, "",
        "Gain of the amplifier"),
    KnownParameter("QAR_S_ADCBITS", QAR_S_ADCBITS, "short", 0, False, "bits",
        "Resolution of the converter in bits"),
    KnownParameter("QAR_F_HIGHVOLTAGE", QAR_F_HIGHVOLTAGE, "float", 0, False, "V",
        "High voltage of the detector in volts"),
    KnownParameter("QAR_C_COMMENT", QAR_C_COMMENT, "str", 255, False, "",
        "Remark on the measurement"),
    KnownParameter("QAR_L_LOWERDISC", QAR_L_LOWERDISC, "long", 0, False, "channel",
        "Lowest channel that the converter accepts"),
    KnownParameter("QAR_L_UPPERDISC", QAR_L_UPPERDISC, "long", 0, False, "channel",
        "Highest channel that the converter accepts"),
    KnownParameter("QAR_B_PILEUPREJ", QAR_B_PILEUPREJ, "byte", 0, False, "",
        "Whether piled up pulses are rejected"),
    KnownParameter("QAR_F_SHAPINGTIME", QAR_F_SHAPINGTIME, "float", 0, False, "µs",
        "Shaping time of the amplifier in microseconds"),
    KnownParameter("QAR_Q_CLOCKTICKS", QAR_Q_CLOCKTICKS, "longlong", 0, False, "",
        "Reading of the electronics clock at the start"),
    KnownParameter("QAR_T_CALDATE", QAR_T_CALDATE, "Date", 0, False, "",
        "Date of the calibration file in use"),
    KnownParameter("QAR_C_SAMPLEID", QAR_C_SAMPLEID, "str", 32, False, "",
        "Identification of the sample"),
    KnownParameter("QAR_C_SAMPLETITLE", QAR_C_SAMPLETITLE, "str", 64, False, "",
        "Title of the sample"),
    KnownParameter("QAR_C_SAMPLETYPE", QAR_C_SAMPLETYPE, "str", 32, False, "",
        "Kind of the sample"),
    KnownParameter("QAR_C_SAMPLEUNIT", QAR_C_SAMPLEUNIT, "str", 8, False, "",
        "Unit of the sample quantity"),
    KnownParameter("QAR_D_QUANTITY", QAR_D_QUANTITY, "double", 0, False, "",
        "Quantity of the sample in its unit"),
    KnownParameter("QAR_D_QUANTITYUNC", QAR_D_QUANTITYUNC, "double", 0, False, "",
        "Uncertainty of the sample quantity, one sigma, in its unit"),
    KnownParameter("QAR_T_SAMPLETIME", QAR_T_SAMPLETIME, "Date", 0, False, "",
        "Time to which activities refer"),
    KnownParameter("QAR_C_LOCATION", QAR_C_LOCATION, "str", 64, False, "",
        "Place where the sample was taken"),
    KnownParameter("QAR_C_COLLECTOR", QAR_C_COLLECTOR, "str", 32, False, "",
        "Who took the sample"),
    KnownParameter("QAR_F_DENSITY", QAR_F_DENSITY, "float", 0, False, "g/cm³",
        "Density of the sample in grams per cubic centimetre"),
    KnownParameter("QAR_F_FILLHEIGHT", QAR_F_FILLHEIGHT, "float", 0, False, "mm",
        "Filling height in the container in millimetres"),
    KnownParameter("QAR_C_CONTAINER", QAR_C_CONTAINER, "str", 32, False, "",
        "Container of the sample"),
    KnownParameter("QAR_D_DISTANCE", QAR_D_DISTANCE, "double", 0, False, "mm",
        "Distance of the sample from the detector in millimetres"),
    KnownParameter("QAR_B_DECAYCORR", QAR_B_DECAYCORR, "byte", 0, False, "",
        "Whether activities are corrected for decay"),
    KnownParameter("QAR_D_ENERGYCAL", QAR_D_ENERGYCAL, "double", 0, True, "",
        "Energy in keV: coefficients of a polynomial in the channel number"),
    KnownParameter("QAR_D_SHAPECAL", QAR_D_SHAPECAL, "double", 0, True, "",
        "Square of the peak width (FWHM) in keV: coefficients of a polynomial in the energy in keV"),
    KnownParameter("QAR_D_EFFICCAL", QAR_D_EFFICCAL, "double", 0, True, "",
        "Logarithm of the efficiency: coefficients of a polynomial in the logarithm of the energy in keV"),
    KnownParameter("QAR_T_ENERGYTIME", QAR_T_ENERGYTIME, "Date", 0, False, "",
        "Date of the energy calibration"),
    KnownParameter("QAR_T_EFFICTIME", QAR_T_EFFICTIME, "Date", 0, False, "",
        "Date of the efficiency calibration"),
    KnownParameter("QAR_D_EFFICMIN", QAR_D_EFFICMIN, "double", 0, False, "keV",
        "Lowest energy in keV of the efficiency calibration"),
    KnownParameter("QAR_D_EFFICMAX", QAR_D_EFFICMAX, "double", 0, False, "keV",
        "Highest energy in keV of the efficiency calibration"),
    KnownParameter("QAR_D_EFFICUNC", QAR_D_EFFICUNC, "double", 0, False, "",
        "Relative uncertainty of the efficiency, one sigma"),
    KnownParameter("QAR_F_CALTEMPER", QAR_F_CALTEMPER, "float", 0, False, "°C",
        "Room temperature of the calibration in degrees Celsius"),
    KnownParameter("QAR_C_CALGEOMETRY", QAR_C_CALGEOMETRY, "str", 64, False, "",
        "Geometry for which the efficiency calibration holds"),
    KnownParameter("QAR_D_PEAKLIMIT", QAR_D_PEAKLIMIT, "double", 0, False, "σ",
        "Limit of the peak search in sigma"),
    KnownParameter("QAR_D_MATCHTOL", QAR_D_MATCHTOL, "double", 0, False, "keV",
        "Tolerance of the nuclide identification in keV"),
    KnownParameter("QAR_L_FIRSTCHAN", QAR_L_FIRSTCHAN, "long", 0, False, "channel",
        "First channel of the peak search"),
    KnownParameter("QAR_L_LASTCHAN", QAR_L_LASTCHAN, "long", 0, False, "channel",
        "Last channel of the peak search"),
    KnownParameter("QAR_S_SMOOTHWIDTH", QAR_S_SMOOTHWIDTH, "short", 0, False, "channels",
        "Channels over which the spectrum is smoothed"),
    KnownParameter("QAR_B_FITMULTIPLT", QAR_B_FITMULTIPLT, "byte", 0, False, "",
        "Whether overlapping peaks are fitted together"),
    KnownParameter("QAR_F_CONFIDENCE", QAR_F_CONFIDENCE, "float", 0, False, "",
        "Confidence level of detection limits, 0 to 1"),
    KnownParameter("QAR_D_MINCONF", QAR_D_MINCONF, "double", 0, False, "",
        "Least confidence of an identified nuclide, 0 to 1"),
    KnownParameter("QAR_D_REPORTLIMIT", QAR_D_REPORTLIMIT, "double", 0, False, "Bq",
        "Activity in Bq below which a report leaves a nuclide out"),
    KnownParameter("QAR_S_REPORTCOPIES", QAR_S_REPORTCOPIES, "short", 0, False, "",
        "Copies of a printed report"),
    KnownParameter("QAR_C_NUCLNAME", QAR_C_NUCLNAME, "str", 16, False, "",
        "Name of the nuclide"),
    KnownParameter("QAR_D_HALFLIFE", QAR_D_HALFLIFE, "double", 0, False, "s",
        "Half-life of the nuclide in seconds"),
    KnownParameter("QAR_D_HALFLIFEUNC", QAR_D_HALFLIFEUNC, "double", 0, False, "s",
        "Uncertainty of the half-life, one sigma, in seconds"),
    KnownParameter("QAR_B_NUCLACTIVE", QAR_B_NUCLACTIVE, "byte", 0, False, "",
        "Whether the identification looks for the nuclide"),
    KnownParameter("QAR_S_NUCLGROUP", QAR_S_NUCLGROUP, "short", 0, False, "",
        "Number of the group that the nuclide belongs to"),
    KnownParameter("QAR_C_NUCLPARENT", QAR_C_NUCLPARENT, "str", 16, False, "",
        "Name of the nuclide's parent"),
    KnownParameter("QAR_D_LINEENERGY", QAR_D_LINEENERGY, "double", 0, True, "keV",
        "Energy of the gamma line in keV"),
    KnownParameter("QAR_D_LINEYIELD", QAR_D_LINEYIELD, "double", 0, True, "1/decay",
        "Photons of the gamma line per decay"),
    KnownParameter("QAR_D_LINEUNC", QAR_D_LINEUNC, "double", 0, True, "keV",
        "Uncertainty of the line energy, one sigma, in keV"),
    KnownParameter("QAR_D_LINEYIELDUNC", QAR_D_LINEYIELDUNC, "double", 0, True, "1/decay",
        "Uncertainty of the line yield, one sigma, in photons per decay"),
    KnownParameter("QAR_B_LINEKEY", QAR_B_LINEKEY, "byte", 0, True, "",
        "Whether the nuclide cannot be identified without the line"),
    KnownParameter("QAR_D_PEAKENERGY", QAR_D_PEAKENERGY, "double", 0, False, "keV",
        "Energy of the peak in keV"),
    KnownParameter("QAR_D_PEAKCENTR", QAR_D_PEAKCENTR, "double", 0, False, "channels",
        "Centroid of the peak in channels"),
    KnownParameter("QAR_D_PEAKFWHM", QAR_D_PEAKFWHM, "double", 0, False, "keV",
        "Width of the peak (FWHM) in keV"),
    KnownParameter("QAR_D_PEAKAREA", QAR_D_PEAKAREA, "double", 0, False, "counts",
        "Net area of the peak in counts"),
    KnownParameter("QAR_D_PEAKAREAU", QAR_D_PEAKAREAU, "double", 0, False, "counts",
        "Uncertainty of the net area, one sigma, in counts"),
    KnownParameter("QAR_D_PEAKCONT", QAR_D_PEAKCONT, "double", 0, False, "counts",
        "Continuum under the peak in counts"),
    KnownParameter("QAR_D_PEAKSIGNIF", QAR_D_PEAKSIGNIF, "double", 0, False, "σ",
        "Significance of the peak in sigma"),
    KnownParameter("QAR_C_PEAKNUCL", QAR_C_PEAKNUCL, "str", 16, False, "",
        "Name of the nuclide that the peak was assigned to"),
    KnownParameter("QAR_L_PEAKLEFT", QAR_L_PEAKLEFT, "long", 0, False, "channel",
        "First channel of the peak's region"),
    KnownParameter("QAR_L_PEAKRIGHT", QAR_L_PEAKRIGHT, "long", 0, False, "channel",
        "Last channel of the peak's region"),
    KnownParameter("QAR_F_PEAKCHISQ", QAR_F_PEAKCHISQ, "float", 0, False, "",
        "Reduced chi square of the peak's fit"),
    KnownParameter("QAR_S_PEAKORIGIN", QAR_S_PEAKORIGIN, "short", 0, False, "",
        "Origin of the peak: 0 gamma line or unknown, 1 annihilation, 2 single escape, 3 double escape, 4 sum"),
    KnownParameter("QAR_C_RESNUCLIDE", QAR_C_RESNUCLIDE, "str", 16, False, "",
        "Name of the identified nuclide"),
    KnownParameter("QAR_L_RESLINES", QAR_L_RESLINES, "long", 0, False, "",
        "Lines of the nuclide that match a peak"),
    KnownParameter("QAR_D_RESCONF", QAR_D_RESCONF, "double", 0, False, "",
        "Confidence of the identification, 0 to 1"),
    KnownParameter("QAR_D_RESENERGY", QAR_D_RESENERGY, "double", 0, False, "keV",
        "Energy of the strongest matching line in keV"),
    KnownParameter("QAR_D_ACTIVITY", QAR_D_ACTIVITY, "double", 0, False, "Bq",
        "Activity of the nuclide in Bq"),
    KnownParameter("QAR_D_ACTIVITYUNC", QAR_D_ACTIVITYUNC, "double", 0, False, "Bq",
        "Uncertainty of the activity, one sigma, in Bq"),
    KnownParameter("QAR_D_DETECTLIMIT", QAR_D_DETECTLIMIT, "double", 0, False, "Bq",
        "Detection limit of the nuclide in Bq"),
    KnownParameter("QAR_S_RESSTATE", QAR_S_RESSTATE, "short", 0, False, "",
        "State of the result: 0 not reviewed, 1 accepted, 2 rejected"),
    KnownParameter("QAR_C_ANSEQUENCE", QAR_C_ANSEQUENCE, "str", 64, False, "",
        "Name of the analysis sequence that the settings belong to"),
    KnownParameter("QAR_T_ANALYSED", QAR_T_ANALYSED, "Date", 0, False, "",
        "Time of the last analysis"),
    KnownParameter("QAR_S_ANSTEP", QAR_S_ANSTEP, "short", 0, False, "",
        "Step of the sequence that was done last"),
    KnownParameter("QAR_L_ANSTATUS", QAR_L_ANSTATUS, "long", 0, False, "",
        "Status of the last step"),
    KnownParameter("QAR_C_ANENGINE", QAR_C_ANENGINE, "str", 64, True, "",
        "Name of the engine of a step of the sequence"),
    KnownParameter("QAR_B_USECALFILE", QAR_B_USECALFILE, "byte", 0, False, "",
        "Whether the calibration comes from the calibration file"),
    KnownParameter("QAR_C_CALTITLE", QAR_C_CALTITLE, "str", 64, False, "",
        "Title of the calibration file in use"),
    KnownParameter("QAR_C_REPORTTITLE", QAR_C_REPORTTITLE, "str", 64, False, "",
        "Title of reports"),
    KnownParameter("QAR_B_REPORTPRINT", QAR_B_REPORTPRINT, "byte", 0, False, "",
        "Whether a report is printed after the analysis"),
    KnownParameter("QAR_C_CALFILE", QAR_C_CALFILE, "str", 255, False, "",
        "Name of the calibration file"),
)
