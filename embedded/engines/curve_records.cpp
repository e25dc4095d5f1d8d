#include "embedded/engines/curve_records.h"

#include "embedded/engines/region_curve.h"
#include "embedded/pqar/parameter_codes.h"

namespace embedded::engines {

void writeCurve(const DataSourceAccess& dataSource, std::uint16_t record, const FittedPeak& peak) {
    const RegionCurve& curve = *peak.curve;
    const struct {
        std::uint32_t code;
        double value;
    } values[] = {
        {QAR_D_PEAKWIDTH, peak.width},
        {QAR_D_PEAKBROAD, peak.broadening},
        {QAR_D_LEFTTAIL, curve.left.fraction},
        {QAR_D_LEFTLENGTH, curve.left.length},
        {QAR_D_RIGHTTAIL, curve.right.fraction},
        {QAR_D_RIGHTLENGTH, curve.right.length},
        {QAR_D_PEAKDRIFT, curve.drift},
        {QAR_D_CONTLEVEL, curve.level},
        {QAR_D_CONTSLOPE, curve.slope},
        {QAR_D_CONTCURVE, curve.curvature},
        {QAR_D_STEPHEIGHT, curve.step.height},
        {QAR_D_STEPCENTR, curve.step.channel},
        {QAR_D_STEPWIDTH, curve.step.width},
        {QAR_D_EDGEHEIGHT, curve.edge.height},
        {QAR_D_EDGECENTR, curve.edge.channel},
        {QAR_D_EDGEWIDTH, curve.edge.width},
        {QAR_D_SHAPECHISQ, curve.chiSquareOfShape},
    };
    for (const auto& [code, value] : values) {
        dataSource.writeDouble(code, record, value);
    }
    dataSource.writeLong(QAR_L_PEAKFREEDOM, record,
                         static_cast<std::int32_t>(curve.degreesOfFreedom));
    std::uint16_t entry = 0;
    for (const FittedPeak& minor : curve.unreported) {
        ++entry;
        dataSource.writeDouble(QAR_D_MINORCENTR, record, minor.channel, entry);
        dataSource.writeDouble(QAR_D_MINORWIDTH, record, minor.width, entry);
        dataSource.writeDouble(QAR_D_MINORAREA, record, minor.area, entry);
    }
}

}  // namespace embedded::engines
