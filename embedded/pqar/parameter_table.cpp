#include "embedded/pqar/parameter_table.h"

#include <algorithm>
#include <array>
#include <functional>
#include <iterator>

#include "embedded/pqar/dictionary_extension.h"
#include "embedded/pqar/parameter_codes.h"

namespace embedded {
namespace {

using enum DataType;
using enum ParameterScope;

// The parameter has the name of its constant. Only scripts/generate reads the unit, which it writes
// to the constants of qar and docs/parameters.md.
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage): only the preprocessor can name a constant.
#define PARAMETER(constant, type, textLength, scope, unit, description) \
    ParameterDescription {                                              \
        constant, #constant, type, textLength, scope, description       \
    }

// clang-format off
constexpr auto table = std::to_array<ParameterDescription>({
    PARAMETER(QAR_C_MEASNAME,     Text,          64, Record, "",         "Name of the measurement"),
    PARAMETER(QAR_C_SEQUENCE,     Text,          64, Record, "",         "Name of the analysis sequence chosen for the measurement"),
    PARAMETER(QAR_C_OPERATOR,     Text,          32, Record, "",         "Operator of the measurement"),
    PARAMETER(QAR_C_DETECTOR,     FixedText,     24, Record, "",         "Detector that measured the spectrum"),
    PARAMETER(QAR_C_INSTRUMENT,   FixedText,     24, Record, "",         "Serial number of the acquisition electronics"),
    PARAMETER(QAR_S_INPUTNUM,     Short,          0, Record, "",         "Number of the input of the acquisition electronics"),
    PARAMETER(QAR_L_CHANNELS,     Long,           0, Record, "channels", "Number of channels of the spectrum"),
    PARAMETER(QAR_D_REALTIME,     Double,         0, Record, "s",        "Real time of the acquisition in seconds"),
    PARAMETER(QAR_D_LIVETIME,     Double,         0, Record, "s",        "Live time of the acquisition in seconds"),
    PARAMETER(QAR_T_ACQSTART,     Date,           0, Record, "",         "Start of the acquisition"),
    PARAMETER(QAR_T_ACQSTOP,      Date,           0, Record, "",         "End of the acquisition"),
    PARAMETER(QAR_D_PRESETREAL,   Double,         0, Record, "s",        "Real time in seconds at which the acquisition ends"),
    PARAMETER(QAR_D_PRESETLIVE,   Double,         0, Record, "s",        "Live time in seconds at which the acquisition ends"),
    PARAMETER(QAR_B_ACQACTIVE,    Byte,           0, Record, "",         "True if the acquisition is running"),
    PARAMETER(QAR_Q_TOTALCOUNT,   LongLong,       0, Record, "counts",   "Sum of all channel contents"),
    PARAMETER(QAR_F_DEADTIME,     Float,          0, Record, "%",        "Dead time in percent of the real time"),
    PARAMETER(QAR_F_AMPGAIN,      Float,          0, Record, "",         "Gain of the amplifier"),
    PARAMETER(QAR_S_ADCBITS,      UnsignedShort,  0, Record, "bits",     "Resolution of the converter in bits"),
    PARAMETER(QAR_F_HIGHVOLTAGE,  Float,          0, Record, "V",        "High voltage of the detector in volts"),
    PARAMETER(QAR_C_COMMENT,      Text,         255, Record, "",         "Remark on the measurement"),
    PARAMETER(QAR_L_LOWERDISC,    Long,           0, Record, "channel",  "Lowest channel that the converter accepts"),
    PARAMETER(QAR_L_UPPERDISC,    Long,           0, Record, "channel",  "Highest channel that the converter accepts"),
    PARAMETER(QAR_B_PILEUPREJ,    Flag,           0, Record, "",         "True if piled up pulses are rejected"),
    PARAMETER(QAR_F_SHAPINGTIME,  Float,          0, Record, "µs",       "Shaping time of the amplifier in microseconds"),
    PARAMETER(QAR_Q_CLOCKTICKS,   LongLong,       0, Record, "",         "Reading of the electronics clock at the start"),
    PARAMETER(QAR_T_CALDATE,      Date,           0, Record, "",         "Date of the calibration file in use"),

    PARAMETER(QAR_C_SAMPLEID,     Text,          32, Record, "",         "Identification of the sample"),
    PARAMETER(QAR_C_SAMPLETITLE,  Text,          64, Record, "",         "Title of the sample"),
    PARAMETER(QAR_C_SAMPLETYPE,   Text,          32, Record, "",         "Kind of the sample"),
    PARAMETER(QAR_C_SAMPLEUNIT,   FixedText,      8, Record, "",         "Unit of the sample quantity"),
    PARAMETER(QAR_D_QUANTITY,     Double,         0, Record, "",         "Quantity of the sample in its unit"),
    PARAMETER(QAR_D_QUANTITYUNC,  Double,         0, Record, "",         "Uncertainty of the sample quantity, one sigma, in its unit"),
    PARAMETER(QAR_T_SAMPLETIME,   Date,           0, Record, "",         "Time to which activities refer"),
    PARAMETER(QAR_C_LOCATION,     Text,          64, Record, "",         "Location at which the sample was taken"),
    PARAMETER(QAR_C_COLLECTOR,    Text,          32, Record, "",         "Person who took the sample"),
    PARAMETER(QAR_F_DENSITY,      Float,          0, Record, "g/cm³",    "Density of the sample in grams per cubic centimetre"),
    PARAMETER(QAR_F_FILLHEIGHT,   Float,          0, Record, "mm",       "Filling height in the container in millimetres"),
    PARAMETER(QAR_C_CONTAINER,    Text,          32, Record, "",         "Container of the sample"),
    PARAMETER(QAR_D_DISTANCE,     Measure,        0, Record, "mm",       "Distance of the sample from the detector in millimetres"),
    PARAMETER(QAR_B_DECAYCORR,    Flag,           0, Record, "",         "True if activities are corrected for decay"),
    PARAMETER(QAR_D_SAMPLINGTIME,  Double,         0, Record, "s",        "Duration in seconds of a uniform sampling that ends at QAR_T_SAMPLETIME; activities include the decay during it"),

    PARAMETER(QAR_D_ENERGYCAL,    Double,         0, Entry,  "",         "Energy in keV: coefficients of a polynomial in the channel number"),
    PARAMETER(QAR_D_SHAPECAL,     Double,         0, Entry,  "",         "Square of the peak width (FWHM) in keV: coefficients of a polynomial in the energy in keV"),
    PARAMETER(QAR_D_EFFICCAL,     Double,         0, Entry,  "",         "Logarithm of the efficiency: coefficients of a polynomial in the logarithm of the energy in keV"),
    PARAMETER(QAR_D_SHAPEEST,     Double,         0, Entry,  "",         "Estimated peak width in the form of QAR_D_SHAPECAL; if both are equal, QAR_D_SHAPECAL is an estimate"),
    PARAMETER(QAR_S_SHAPEORIGIN,  Short,          0, Record, "",         "Origin of the peak width: 0 given, 1 estimated from peaks, 2 typical detector, 3 estimated because the given one contradicts the peaks"),
    PARAMETER(QAR_S_DETECTORKIND, Short,          0, Record, "",         "Kind of detector, from its peak width: 1 germanium, 2 CdZnTe, 3 LaBr3, 4 NaI or CsI, 5 BGO, 0 unknown"),
    PARAMETER(QAR_D_ENERGYCORR,   Double,         0, Entry,  "",         "Corrected energy of the last analysis in keV: coefficients of a polynomial in the energy of the calibration"),
    PARAMETER(QAR_L_CORRLINES,    Long,           0, Record, "",         "Number of lines used for the energy correction, 0 without a correction"),
    PARAMETER(QAR_T_ENERGYTIME,   Date,           0, Record, "",         "Date of the energy calibration"),
    PARAMETER(QAR_T_EFFICTIME,    Date,           0, Record, "",         "Date of the efficiency calibration"),
    PARAMETER(QAR_D_EFFICMIN,     Measure,        0, Record, "keV",      "Lowest energy in keV of the efficiency calibration"),
    PARAMETER(QAR_D_EFFICMAX,     Measure,        0, Record, "keV",      "Highest energy in keV of the efficiency calibration"),
    PARAMETER(QAR_D_EFFICUNC,     Double,         0, Record, "",         "Relative uncertainty of the efficiency, one sigma; not used if QAR_D_EFFICCOVAR has a value other than 0"),
    PARAMETER(QAR_D_EFFICCOVAR,   Double,         0, Entry,  "",         "Covariance of the n coefficients of QAR_D_EFFICCAL: the n (n + 1) / 2 elements of a lower triangular matrix L, row by row; the covariance is the product of L and its transpose"),
    PARAMETER(QAR_D_TOTALENERGY,  Double,         0, Entry,  "keV",      "Energies in keV of the total efficiency, up to the first that does not rise; below the lowest the total efficiency is 0, above the highest it is constant"),
    PARAMETER(QAR_D_TOTALEFFIC,   Double,         0, Entry,  "",         "Total efficiency at the energies of QAR_D_TOTALENERGY, between them linear in the logarithms"),
    PARAMETER(QAR_D_TOTALUNC,     Double,         0, Record, "",         "Relative uncertainty of the total efficiency, one sigma, common to all energies"),
    PARAMETER(QAR_F_CALTEMPER,    Float,          0, Record, "°C",       "Room temperature of the calibration in degrees Celsius"),
    PARAMETER(QAR_C_CALGEOMETRY,  Text,          64, Record, "",         "Geometry of the efficiency calibration"),

    PARAMETER(QAR_D_PEAKLIMIT,    Double,         0, Record, "σ",        "Limit of the peak search in sigma"),
    PARAMETER(QAR_D_MATCHTOL,     Double,         0, Record, "keV",      "Tolerance of the nuclide identification in keV"),
    PARAMETER(QAR_L_FIRSTCHAN,    Long,           0, Record, "channel",  "First channel of the peak search"),
    PARAMETER(QAR_L_LASTCHAN,     Long,           0, Record, "channel",  "Last channel of the peak search"),
    PARAMETER(QAR_S_SMOOTHWIDTH,  Short,          0, Record, "channels", "Channels over which the spectrum is smoothed"),
    PARAMETER(QAR_B_FITMULTIPLT,  Byte,           0, Record, "",         "True if overlapping peaks are fitted together"),
    PARAMETER(QAR_F_CONFIDENCE,   Float,          0, Record, "",         "Confidence level of detection limits, 0 to 1"),
    PARAMETER(QAR_D_MINCONF,      Double,         0, Record, "",         "Minimum confidence of an identified nuclide, 0 to 1"),
    PARAMETER(QAR_D_PROBALPHA,     Double,         0, Record, "",         "Probability that a sample without the nuclide exceeds the decision threshold, 0.0001 to 0.5; default 0.05"),
    PARAMETER(QAR_D_PROBBETA,      Double,         0, Record, "",         "Probability that a sample at the detection limit does not exceed the decision threshold, 0.0001 to 0.5; default 1 - QAR_F_CONFIDENCE"),
    PARAMETER(QAR_D_COVERAGE,      Double,         0, Record, "",         "Probability of the coverage interval of an activity, 0.5 to 0.9999; default 0.95"),
    PARAMETER(QAR_D_REPORTLIMIT,  Double,         0, Record, "Bq",       "Activity in Bq below which a report omits a nuclide"),
    PARAMETER(QAR_S_REPORTCOPIES, UnsignedShort,  0, Record, "",         "Copies of a printed report"),

    PARAMETER(QAR_C_NUCLNAME,     Text,          16, Record, "",         "Name of the nuclide"),
    PARAMETER(QAR_D_HALFLIFE,     Double,         0, Record, "s",        "Half-life of the nuclide in seconds"),
    PARAMETER(QAR_D_HALFLIFEUNC,  Double,         0, Record, "s",        "Uncertainty of the half-life, one sigma, in seconds"),
    PARAMETER(QAR_B_NUCLACTIVE,   Byte,           0, Record, "",         "True if the identification looks for the nuclide"),
    PARAMETER(QAR_S_NUCLGROUP,    Short,          0, Record, "",         "Number of the group that the nuclide belongs to"),
    PARAMETER(QAR_C_NUCLPARENT,   Text,          16, Record, "",         "Name of the nuclide's parent"),
    PARAMETER(QAR_D_LINEENERGY,   Double,         0, Entry,  "keV",      "Energy of the gamma line in keV"),
    PARAMETER(QAR_D_LINEYIELD,    Double,         0, Entry,  "1/decay",  "Photons of the gamma line per decay"),
    PARAMETER(QAR_D_LINEUNC,      Double,         0, Entry,  "keV",      "Uncertainty of the line energy, one sigma, in keV"),
    PARAMETER(QAR_D_LINEYIELDUNC, Double,         0, Entry,  "1/decay",  "Uncertainty of the line yield, one sigma, in photons per decay"),
    PARAMETER(QAR_B_LINEKEY,      Byte,           0, Entry,  "",         "True if the nuclide cannot be identified without the line"),
    PARAMETER(QAR_D_LINESUMFACT,  Double,         0, Entry,  "",         "Peak area of the line with true coincidence summing, divided by that without; 0 or no value means 1"),
    PARAMETER(QAR_D_LINESUMUNC,   Double,         0, Entry,  "",         "Relative uncertainty of QAR_D_LINESUMFACT, one sigma, negative if the factor falls when the total efficiency rises; common to all lines of all nuclides"),

    PARAMETER(QAR_D_PEAKENERGY,   Double,         0, Record, "keV",      "Energy of the peak in keV"),
    PARAMETER(QAR_D_PEAKCENTR,    Double,         0, Record, "channels", "Centroid of the peak in channels"),
    PARAMETER(QAR_D_PEAKFWHM,     Double,         0, Record, "keV",      "Width of the peak (FWHM) in keV"),
    PARAMETER(QAR_D_PEAKAREA,     Double,         0, Record, "counts",   "Net area of the peak in counts"),
    PARAMETER(QAR_D_PEAKAREAU,    Double,         0, Record, "counts",   "Uncertainty of the net area, one sigma, in counts"),
    PARAMETER(QAR_D_PEAKCONT,     Double,         0, Record, "counts",   "Continuum under the peak in counts"),
    PARAMETER(QAR_D_PEAKSIGNIF,   Double,         0, Record, "σ",        "Significance of the peak in sigma"),
    PARAMETER(QAR_C_PEAKNUCL,     Text,          16, Record, "",         "Name of the nuclide that the peak was assigned to"),
    PARAMETER(QAR_L_PEAKLEFT,     Long,           0, Record, "channel",  "First channel of the peak's region"),
    PARAMETER(QAR_L_PEAKRIGHT,    Long,           0, Record, "channel",  "Last channel of the peak's region"),
    PARAMETER(QAR_F_PEAKCHISQ,    Float,          0, Record, "",         "Reduced chi square of the peak's fit"),
    PARAMETER(QAR_S_PEAKORIGIN,   UnsignedShort,  0, Record, "",         "Origin of the peak: 0 gamma line or unknown, 1 annihilation, 2 single escape, 3 double escape, 4 sum, 5 X-ray"),
    PARAMETER(QAR_D_PEAKWIDTH,    Double,         0, Record, "channels", "Width of the Gaussian (FWHM) in channels"),
    PARAMETER(QAR_D_PEAKBROAD,    Double,         0, Record, "",         "Factor by which the peak is wider than the region's shape; its tails and drift are not"),
    PARAMETER(QAR_D_LEFTTAIL,     Double,         0, Record, "",         "Fraction of the area in the tail toward lower channels, 0 to 1"),
    PARAMETER(QAR_D_LEFTLENGTH,   Double,         0, Record, "σ",        "Decay length of that tail in sigma, before the factor QAR_D_PEAKBROAD"),
    PARAMETER(QAR_D_RIGHTTAIL,    Double,         0, Record, "",         "Fraction of the area in the tail toward higher channels, 0 to 1"),
    PARAMETER(QAR_D_RIGHTLENGTH,  Double,         0, Record, "σ",        "Decay length of that tail in sigma, before the factor QAR_D_PEAKBROAD"),
    PARAMETER(QAR_D_PEAKDRIFT,    Double,         0, Record, "σ",        "Drift of the centroid during the measurement in sigma, before the factor QAR_D_PEAKBROAD"),
    PARAMETER(QAR_D_CONTLEVEL,    Double,         0, Record, "counts",   "Continuum in the middle of the peak's region, in counts per channel"),
    PARAMETER(QAR_D_CONTSLOPE,    Double,         0, Record, "counts",   "Rise of the continuum from the middle to the end of the region"),
    PARAMETER(QAR_D_CONTCURVE,    Double,         0, Record, "counts",   "Height of the continuum at both ends of the region above the straight line"),
    PARAMETER(QAR_D_STEPHEIGHT,   Double,         0, Record, "counts",   "Height of the step in the continuum below the strongest peak of the region"),
    PARAMETER(QAR_D_STEPCENTR,    Double,         0, Record, "channels", "Position of that step in channels"),
    PARAMETER(QAR_D_STEPWIDTH,    Double,         0, Record, "channels", "FWHM in channels of a Gaussian as wide as that step"),
    PARAMETER(QAR_D_EDGEHEIGHT,   Double,         0, Record, "counts",   "Height of a further step in the continuum, an edge; 0: none"),
    PARAMETER(QAR_D_EDGECENTR,    Double,         0, Record, "channels", "Position of the edge in channels"),
    PARAMETER(QAR_D_EDGEWIDTH,    Double,         0, Record, "channels", "FWHM in channels of a Gaussian as wide as the edge"),
    PARAMETER(QAR_L_PEAKFREEDOM,  Long,           0, Record, "",         "Degrees of freedom of the region's fit"),
    PARAMETER(QAR_D_SHAPECHISQ,   Double,         0, Record, "",         "Part of chi square that comes from differences to the expected peak shape"),
    PARAMETER(QAR_D_MINORCENTR,   Double,         0, Entry,  "channels", "Centroid of a peak of the fit that is below the limit and has no record"),
    PARAMETER(QAR_D_MINORWIDTH,   Double,         0, Entry,  "channels", "Width (FWHM) of that peak in channels"),
    PARAMETER(QAR_D_MINORAREA,    Double,         0, Entry,  "counts",   "Net area of that peak in counts; may be negative"),

    PARAMETER(QAR_C_RESNUCLIDE,   Text,          16, Record, "",         "Name of the identified nuclide"),
    PARAMETER(QAR_L_RESLINES,     Long,           0, Record, "",         "Lines of the nuclide that match a peak"),
    PARAMETER(QAR_D_RESCONF,      Double,         0, Record, "",         "Confidence of the identification, 0 to 1"),
    PARAMETER(QAR_D_RESENERGY,    Double,         0, Record, "keV",      "Energy of the strongest matching line in keV"),
    PARAMETER(QAR_D_ACTIVITY,     Double,         0, Record, "",         "Activity of the nuclide, the primary result, in the unit of QAR_C_RESUNIT; may be negative"),
    PARAMETER(QAR_D_ACTIVITYUNC,  Double,         0, Record, "",         "Standard uncertainty of QAR_D_ACTIVITY in the unit of QAR_C_RESUNIT"),
    PARAMETER(QAR_D_DETECTLIMIT,  Double,         0, Record, "",         "Detection limit of the activity in the unit of QAR_C_RESUNIT"),
    PARAMETER(QAR_S_RESSTATE,     UnsignedShort,  0, Record, "",         "State of the result: 0 not reviewed, 1 accepted, 2 rejected"),
    PARAMETER(QAR_C_RESREASON,    Text,          48, Record, "",         "Why the confidence of the identification is not higher"),
    PARAMETER(QAR_D_RESTHRESH,     Double,         0, Record, "",         "Decision threshold of the activity in the unit of QAR_C_RESUNIT"),
    PARAMETER(QAR_D_RESBEST,       Double,         0, Record, "",         "Best estimate of the activity in the unit of QAR_C_RESUNIT, not negative"),
    PARAMETER(QAR_D_RESBESTUNC,    Double,         0, Record, "",         "Standard uncertainty of QAR_D_RESBEST in the unit of QAR_C_RESUNIT"),
    PARAMETER(QAR_D_RESLOWER,      Double,         0, Record, "",         "Lower limit of the coverage interval in the unit of QAR_C_RESUNIT"),
    PARAMETER(QAR_D_RESUPPER,      Double,         0, Record, "",         "Upper limit of the coverage interval in the unit of QAR_C_RESUNIT"),
    PARAMETER(QAR_C_RESUNIT,       Text,          16, Record, "",         "Unit of the activity and its limits: Bq, or Bq per unit of the sample quantity"),
    PARAMETER(QAR_D_RESUCOUNTS,    Double,         0, Record, "",         "Part of QAR_D_ACTIVITYUNC from the counts of the sample, in the unit of QAR_C_RESUNIT"),
    PARAMETER(QAR_D_RESUBLANK,     Double,         0, Record, "",         "Part of QAR_D_ACTIVITYUNC from the counts of the blank, in the unit of QAR_C_RESUNIT"),
    PARAMETER(QAR_D_RESUEFFIC,     Double,         0, Record, "",         "Part of QAR_D_ACTIVITYUNC from the efficiency, in the unit of QAR_C_RESUNIT"),
    PARAMETER(QAR_D_RESUSUMMING,   Double,         0, Record, "",         "Part of QAR_D_ACTIVITYUNC from the correction of coincidence summing, in the unit of QAR_C_RESUNIT"),
    PARAMETER(QAR_D_RESUYIELD,     Double,         0, Record, "",         "Part of QAR_D_ACTIVITYUNC from the line yields, in the unit of QAR_C_RESUNIT"),
    PARAMETER(QAR_D_RESUHALFLIFE,  Double,         0, Record, "",         "Part of QAR_D_ACTIVITYUNC from half-lives, in the unit of QAR_C_RESUNIT"),
    PARAMETER(QAR_D_RESUQUANTITY,  Double,         0, Record, "",         "Part of QAR_D_ACTIVITYUNC from the sample quantity, in the unit of QAR_C_RESUNIT"),
    PARAMETER(QAR_C_RESNOVALUE,    Text,          48, Record, "",         "Why the activity or one of its limits has no value"),
    PARAMETER(QAR_D_RESBLANK,      Double,         0, Record, "",         "Activity subtracted for the blank, in the unit of QAR_C_RESUNIT"),
    PARAMETER(QAR_D_RESLINE,       Double,         0, Entry,  "keV",      "Energy of the strongest line of a peak used for the activity in keV"),
    PARAMETER(QAR_D_RESAREA,       Double,         0, Entry,  "counts",   "Net area of the peak at QAR_D_RESLINE before the blank is subtracted; may be negative"),
    PARAMETER(QAR_D_RESAREAUNC,    Double,         0, Entry,  "counts",   "Uncertainty of QAR_D_RESAREA, one sigma"),
    PARAMETER(QAR_D_RESBLKAREA,    Double,         0, Entry,  "counts",   "Net area of the blank at QAR_D_RESLINE, scaled to the live time of the sample"),
    PARAMETER(QAR_D_RESBLKUNC,     Double,         0, Entry,  "counts",   "Uncertainty of QAR_D_RESBLKAREA, one sigma"),
    PARAMETER(QAR_D_RESNULLUNC,   Double,         0, Entry,  "counts",   "Uncertainty that QAR_D_RESAREA would have without net counts, one sigma"),

    PARAMETER(QAR_D_BLANKLIVE,     Double,         0, Record, "s",        "Live time of the blank in seconds"),
    PARAMETER(QAR_D_BLANKENERGY,   Double,         0, Entry,  "",         "Energy in keV of the blank: coefficients of a polynomial in the channel number"),
    PARAMETER(QAR_D_BLANKSHAPE,    Double,         0, Entry,  "",         "Square of the peak width (FWHM) of the blank in keV: coefficients of a polynomial in the energy in keV; none: estimated from its peaks"),
    PARAMETER(QAR_L_BLANKCOUNTS,   Long,           0, Entry,  "counts",   "Contents of the channels of the blank"),

    PARAMETER(QAR_C_ANSEQUENCE,   Text,          64, Record, "",         "Name of the analysis sequence that the settings belong to"),
    PARAMETER(QAR_T_ANALYSED,     Date,           0, Record, "",         "Time of the last analysis"),
    PARAMETER(QAR_S_ANSTEP,       Short,          0, Record, "",         "Last completed step of the sequence"),
    PARAMETER(QAR_L_ANSTATUS,     Long,           0, Record, "",         "Status of the last step"),
    PARAMETER(QAR_C_ANENGINE,     Text,          64, Entry,  "",         "Name of the engine of a step of the sequence"),
    PARAMETER(QAR_C_ANLIBRARY,    Text,          64, Record, "",         "Name and version of the nuclide library of the last analysis; empty: the library of the file"),
    PARAMETER(QAR_C_ANBLANK,       Text,         255, Record, "",         "Name of the blank that the last analysis subtracted; empty: none"),
    PARAMETER(QAR_C_ANVERSION,     Text,          32, Record, "",         "Version of the program of the last analysis"),
    PARAMETER(QAR_D_ANBLANKLIVE,   Double,         0, Record, "s",        "Live time in seconds of the blank that the last analysis subtracted"),
    PARAMETER(QAR_B_USECALFILE,   Byte,           0, Record, "",         "True if the calibration comes from the calibration file"),
    PARAMETER(QAR_C_CALTITLE,     Text,          64, Record, "",         "Title of the calibration file in use"),
    PARAMETER(QAR_C_REPORTTITLE,  Text,          64, Record, "",         "Title of reports"),
    PARAMETER(QAR_B_REPORTPRINT,  Byte,           0, Record, "",         "True if a report is printed after the analysis"),
    PARAMETER(QAR_C_CALFILE,      Text,         255, Record, "",         "Name of the calibration file"),
});
// clang-format on

#undef PARAMETER

constexpr char upperCase(char character) {
    return character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A')
                                                : character;
}

constexpr bool nameLess(std::string_view left, std::string_view right) {
    return std::ranges::lexicographical_compare(left, right, {}, upperCase, upperCase);
}

// Returns the first parameter whose name or short name is the text, or null.
template <typename Parameters, typename Projection>
const ParameterDescription* findIn(const Parameters& parameters, std::string_view text,
                                   Projection nameOf) {
    const auto row = std::ranges::find_if(parameters, [&](const auto& parameter) {
        return std::ranges::equal(std::invoke(nameOf, parameter), text, {}, upperCase, upperCase);
    });
    return row != parameters.end() ? &*row : nullptr;
}

constexpr bool isTextType(DataType type) {
    return propertiesOf(type).typeName == "str";
}

constexpr bool isWellFormed(const ParameterDescription& parameter) {
    const std::string_view name = parameter.name;
    return name.size() > parameterNamePrefixLength && name.size() <= maxParameterNameLength &&
           name.starts_with("QAR_") && name[4] == propertiesOf(parameter.type).letter &&
           name[5] == '_' && isTextType(parameter.type) == (parameter.textLength > 0) &&
           std::ranges::equal(name, name, {}, {}, upperCase) && !parameter.description.empty() &&
           parameter.description.size() <= 255;
}

// The rows of the table, sorted by name. The names are upper case, so that a plain comparison has
// the order of nameLess.
constexpr auto rowsByName = [] {
    std::array<std::uint8_t, table.size()> rows{};
    for (std::size_t row = 0; row < rows.size(); ++row) {
        rows.at(row) = static_cast<std::uint8_t>(row);
    }
    std::ranges::sort(rows, {}, [](std::uint8_t row) { return table.at(row).name; });
    return rows;
}();

static_assert(table.size() <= 256, "rowsByName counts in bytes");
static_assert(std::ranges::all_of(table, isWellFormed));
static_assert(std::ranges::adjacent_find(table, std::ranges::greater_equal{},
                                         &ParameterDescription::code) == table.end(),
              "codes ascend and none occurs twice");

}  // namespace

std::uint16_t ParameterDescription::size() const {
    return static_cast<std::uint16_t>(propertiesOf(type).width + textLength);
}

bool ParameterDescription::isText() const {
    return isTextType(type);
}

std::uint16_t ParameterDescription::classCode() const {
    return classOf(code);
}

std::string_view ParameterDescription::shortName() const {
    return name.substr(parameterNamePrefixLength);
}

std::span<const ParameterDescription> allParameters() {
    return table;
}

const ParameterDescription* findParameter(std::uint32_t code) {
    const auto* const row = std::ranges::lower_bound(table, code, {}, &ParameterDescription::code);
    if (row != table.end() && row->code == code) {
        return &*row;
    }
    const auto& added = DictionaryExtension::ofProcess().parameters();
    const auto extra = std::ranges::lower_bound(added, code, {}, &ParameterDescription::code);
    return extra != added.end() && extra->code == code ? &*extra : nullptr;
}

const ParameterDescription* findParameter(std::string_view name) {
    const auto nameAt = [](std::uint8_t row) { return table.at(row).name; };
    const auto* const row = std::ranges::lower_bound(rowsByName, name, nameLess, nameAt);
    if (row != rowsByName.end() && !nameLess(name, nameAt(*row))) {
        return &table.at(*row);
    }
    return findIn(DictionaryExtension::ofProcess().parameters(), name, &ParameterDescription::name);
}

const ParameterDescription* findParameterByShortName(std::string_view shortName) {
    const auto* const row = findIn(table, shortName, &ParameterDescription::shortName);
    return row != nullptr ? row
                          : findIn(DictionaryExtension::ofProcess().parameters(), shortName,
                                   &ParameterDescription::shortName);
}

bool isFormattedClass(std::uint16_t classCode) {
    const auto hasClass = [classCode](const auto& parameters) {
        const auto first =
            std::ranges::lower_bound(parameters, classCode, {}, &ParameterDescription::classCode);
        return first != parameters.end() && first->classCode() == classCode;
    };
    return hasClass(table) || hasClass(DictionaryExtension::ofProcess().parameters());
}

}  // namespace embedded
