#include "embedded/engines/curve_records.h"

#include "embedded/engines/region_curve.h"
#include "embedded/pqar/parameter_codes.h"

namespace embedded::engines {

namespace {

// A value of the curve, which is not written if it equals that of a plain Gaussian on a straight
// line.
struct CurveValue {
    std::uint32_t code;
    double value;
    double plain = 0.0;
};

double lengthOf(const Tail& tail) {
    return tail.fraction > 0.0 ? tail.length : 0.0;
}

void writeMinorPeak(const DataSourceAccess& dataSource, std::uint16_t record, std::uint16_t entry,
                    const FittedPeak& peak) {
    dataSource.writeDouble(QAR_D_MINORCENTR, record, peak.channel, entry);
    dataSource.writeDouble(QAR_D_MINORWIDTH, record, peak.width, entry);
    dataSource.writeDouble(QAR_D_MINORAREA, record, peak.area, entry);
}

}  // namespace

void writeCurve(const DataSourceAccess& dataSource, std::uint16_t record, const FittedPeak& peak) {
    const RegionCurve& curve = *peak.curve;
    const Fall step = curve.step.height != 0.0 ? curve.step : Fall{};
    const Fall edge = curve.edge.height != 0.0 ? curve.edge : Fall{};
    for (const auto& [code, value, plain] : {
             CurveValue{QAR_D_PEAKWIDTH, peak.width},
             CurveValue{QAR_D_PEAKBROAD, peak.broadening, 1.0},
             CurveValue{QAR_D_LEFTTAIL, curve.left.fraction},
             CurveValue{QAR_D_LEFTLENGTH, lengthOf(curve.left)},
             CurveValue{QAR_D_RIGHTTAIL, curve.right.fraction},
             CurveValue{QAR_D_RIGHTLENGTH, lengthOf(curve.right)},
             CurveValue{QAR_D_PEAKDRIFT, curve.drift},
             CurveValue{QAR_D_CONTLEVEL, curve.level},
             CurveValue{QAR_D_CONTSLOPE, curve.slope},
             CurveValue{QAR_D_CONTCURVE, curve.curvature},
             CurveValue{QAR_D_STEPHEIGHT, step.height},
             CurveValue{QAR_D_STEPCENTR, step.channel},
             CurveValue{QAR_D_STEPWIDTH, step.width},
             CurveValue{QAR_D_EDGEHEIGHT, edge.height},
             CurveValue{QAR_D_EDGECENTR, edge.channel},
             CurveValue{QAR_D_EDGEWIDTH, edge.width},
             CurveValue{QAR_D_SHAPECHISQ, curve.chiSquareOfShape},
         }) {
        if (value != plain) {
            dataSource.writeDouble(code, record, value);
        }
    }
    dataSource.writeLong(QAR_L_PEAKFREEDOM, record,
                         static_cast<std::int32_t>(curve.degreesOfFreedom));
    std::uint16_t entry = 0;
    for (const FittedPeak& minor : curve.unreported) {
        writeMinorPeak(dataSource, record, ++entry, minor);
    }
}

}  // namespace embedded::engines
