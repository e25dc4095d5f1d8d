// The peak-search engine, peak_search.so: searches the spectrum of an open data source for peaks
// and identifies nuclides. A script runs it as engine "peak_search", entry point "searchPeaks".
#ifndef PYORV3_EMBEDDED_ENGINES_ENGINE_H
#define PYORV3_EMBEDDED_ENGINES_ENGINE_H

#include <cstdint>

#include "module/interface/orv.h"

namespace embedded::engines {

// ---- The option word --------------------------------------------------------------------------
// Bits 0 and 1 choose the steps; neither is as both. Bits 8 to 15 give the significance limit in
// tenths of a standard deviation, 10 (1.0) to 255 (25.5); 0 takes the file's. Other bits are 0.

inline constexpr std::uint32_t optionSearchPeaks = 0x1;
inline constexpr std::uint32_t optionIdentifyNuclides = 0x2;
inline constexpr std::uint32_t optionLimitMask = 0xFF00;
inline constexpr unsigned optionLimitShift = 8;

// ---- Statuses ----------------------------------------------------------------------------------

namespace status {
inline constexpr std::uint32_t success = 0;
// The step is done and its results are written, but no peak was looked for in some of the channels
// that the settings name, because the shape calibration gives them no usable width. It has a number
// of its own and the bits of a failure, for a script sees every code of an engine as 0xE061xxxx.
inline constexpr std::uint32_t rangePartlySearched = 0xE061000E;
inline constexpr std::uint32_t badOption = 0xE0610001;          // option word not as above
inline constexpr std::uint32_t dataSourceRefused = 0xE0610002;  // no context has the handle
inline constexpr std::uint32_t spectrumUnreadable =
    0xE0610003;                                             // no source open, none in it, or failed
inline constexpr std::uint32_t spectrumEmpty = 0xE0610004;  // no channel has a count
inline constexpr std::uint32_t noEnergyCalibration = 0xE0610005;
inline constexpr std::uint32_t noShapeCalibration = 0xE0610006;
inline constexpr std::uint32_t calibrationUnusable = 0xE0610007;  // energy not rising, no widths
inline constexpr std::uint32_t badSetting = 0xE0610008;        // a processing setting out of range
inline constexpr std::uint32_t noNuclides = 0xE0610009;        // 0x2 alone, but no nuclide records
inline constexpr std::uint32_t recordUnreadable = 0xE061000A;  // a peak or nuclide record
inline constexpr std::uint32_t resultsNotWritable = 0xE061000B;  // such as a source opened to read
inline constexpr std::uint32_t outOfMemory = 0xE061000C;
inline constexpr std::uint32_t internalFailure = 0xE061000D;  // a failure that has no other code
}  // namespace status

}  // namespace embedded::engines

// dataSource: the handle of a data source open for reading and writing; options: see above.
//
// Read by both steps: QAR_L_CHANNELS and the spectrum, whose contents may be negative where a
// background was subtracted; QAR_D_ENERGYCAL, QAR_D_SHAPECAL, QAR_D_EFFICCAL (may be missing); and
// of the settings, each with what holds where it is missing: QAR_D_PEAKLIMIT (5; 1 to 100 sigma),
// QAR_L_FIRSTCHAN and QAR_L_LASTCHAN (the whole spectrum), QAR_S_SMOOTHWIDTH (0, as wide as peaks
// are; channels, at most 1/16 of the spectrum), QAR_B_FITMULTIPLT (1), QAR_D_MATCHTOL (1 keV; above
// 0), QAR_D_MINCONF (0.5; 0 to 1).
// Read by the identification: QAR_F_CONFIDENCE (0.95; 0.5 to less than 1), QAR_D_LIVETIME,
// QAR_D_REALTIME, QAR_T_ACQSTART, QAR_T_SAMPLETIME, QAR_B_DECAYCORR (1), QAR_D_EFFICUNC (0); of
// each nuclide record QAR_C_NUCLNAME, QAR_B_NUCLACTIVE (1), QAR_D_HALFLIFE (stable),
// QAR_D_HALFLIFEUNC (0), QAR_C_NUCLPARENT (none), and of each of its lines QAR_D_LINEENERGY,
// QAR_D_LINEUNC (0), QAR_D_LINEYIELD, QAR_D_LINEYIELDUNC (0), QAR_B_LINEKEY (0).
//
// The search replaces the records of class 0x2006, one for each peak by rising energy:
// QAR_D_PEAKENERGY, _PEAKCENTR, _PEAKFWHM (of the Gaussian), QAR_D_PEAKAREA (tail included),
// _PEAKAREAU (enlarged where the fit does not describe its region), _PEAKCONT, _PEAKSIGNIF (root of
// the gain in likelihood), QAR_L_PEAKLEFT and QAR_L_PEAKRIGHT (region of the fit), QAR_F_PEAKCHISQ
// (chi-square of that region per degree of freedom) and an empty QAR_C_PEAKNUCL. Old records of
// class 0x2007 go with the old peaks. The identification works on the records of class 0x2006. It
// replaces those of class 0x2007: QAR_C_RESNUCLIDE, QAR_L_RESLINES (lines at a peak),
// QAR_D_RESCONF; the most confident first, those found, with a confidence of QAR_D_MINCONF and
// more, having QAR_D_RESENERGY too. Where the file has an efficiency calibration and a live time,
// QAR_D_DETECTLIMIT is written of every nuclide and QAR_D_ACTIVITY and QAR_D_ACTIVITYUNC of those
// found; otherwise there are records of those found alone. It writes QAR_C_PEAKNUCL and
// QAR_S_PEAKORIGIN of every peak. With both steps asked for a file without nuclide records has none
// identified; with 0x2 alone that is a failure. The headers of peak_fit.h, multiplet.h,
// identification.h and nuclide_library.h say how each value is computed.
//
// Nothing is written before the step's results are there. Returns a status; a failure in writing
// may leave some of the new records. The source is not flushed.
extern "C" ORV_EXPORT std::uint32_t ORV_ENGINE_CALL searchPeaks(std::int32_t dataSource,
                                                                std::int32_t options, std::int32_t,
                                                                std::int32_t);

#endif
