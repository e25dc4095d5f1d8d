#include "embedded/engines/nuclide_patterns.h"

#include "embedded/pqar/parameter_codes.h"

namespace embedded::engines {

std::vector<LinePattern> readPatterns(const DataSourceAccess& dataSource,
                                      const Calibration& calibration) {
    std::vector<LinePattern> patterns;
    for (std::uint16_t record = 1; record <= dataSource.recordCount(QAR_CLS_NUCLIDE); ++record) {
        if (dataSource.readByte(QAR_B_NUCLACTIVE, record).value_or(1) == 0) {
            continue;
        }
        LinePattern pattern = {dataSource.readText(QAR_C_NUCLNAME, record).value_or(""), {}, 0.0};
        const std::uint16_t lines = dataSource.entryCount(QAR_CLS_NUCLIDE, record);
        for (std::uint16_t entry = 1; entry <= lines; ++entry) {
            const double energy =
                dataSource.readDouble(QAR_D_LINEENERGY, record, entry).value_or(0.0);
            const double photons =
                dataSource.readDouble(QAR_D_LINEYIELD, record, entry).value_or(0.0);
            const double weight = photons * efficiencyAt(calibration, energy);
            if (weight > 0.0) {
                pattern.lines.push_back({energy, weight});
            }
        }
        if (!pattern.lines.empty()) {
            patterns.push_back(std::move(pattern));
        }
    }
    return patterns;
}

}  // namespace embedded::engines
