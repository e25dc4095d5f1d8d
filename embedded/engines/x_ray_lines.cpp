#include "embedded/engines/x_ray_lines.h"

#include <array>
#include <cmath>

namespace embedded::engines {

namespace {

struct Row {
    std::string_view symbol;
    double atomicNumber;
    double alpha1;  // keV
    double alpha2;
    double beta1;
};

// After R. D. Deslattes and others, Rev. Mod. Phys. 75 (2003) 35, rounded.
// clang-format off
constexpr std::array rows = {
    Row{"Zn", 30, 8.639, 8.616, 9.572},
    Row{"Ga", 31, 9.252, 9.225, 10.264},
    Row{"Ge", 32, 9.886, 9.855, 10.982},
    Row{"As", 33, 10.544, 10.508, 11.726},
    Row{"Se", 34, 11.222, 11.181, 12.496},
    Row{"Br", 35, 11.924, 11.878, 13.291},
    Row{"Kr", 36, 12.649, 12.598, 14.112},
    Row{"Rb", 37, 13.395, 13.336, 14.961},
    Row{"Sr", 38, 14.165, 14.098, 15.836},
    Row{"Y", 39, 14.958, 14.883, 16.738},
    Row{"Zr", 40, 15.775, 15.691, 17.668},
    Row{"Nb", 41, 16.615, 16.521, 18.623},
    Row{"Mo", 42, 17.479, 17.374, 19.608},
    Row{"Tc", 43, 18.367, 18.251, 20.619},
    Row{"Ru", 44, 19.279, 19.150, 21.657},
    Row{"Rh", 45, 20.216, 20.074, 22.724},
    Row{"Pd", 46, 21.177, 21.020, 23.819},
    Row{"Ag", 47, 22.163, 21.990, 24.942},
    Row{"Cd", 48, 23.174, 22.984, 26.096},
    Row{"In", 49, 24.210, 24.002, 27.276},
    Row{"Sn", 50, 25.271, 25.044, 28.486},
    Row{"Sb", 51, 26.359, 26.111, 29.726},
    Row{"Te", 52, 27.472, 27.202, 30.996},
    Row{"I", 53, 28.612, 28.317, 32.295},
    Row{"Xe", 54, 29.779, 29.458, 33.624},
    Row{"Cs", 55, 30.973, 30.625, 34.987},
    Row{"Ba", 56, 32.194, 31.817, 36.378},
    Row{"La", 57, 33.442, 33.034, 37.801},
    Row{"Ce", 58, 34.720, 34.279, 39.257},
    Row{"Pr", 59, 36.026, 35.550, 40.748},
    Row{"Nd", 60, 37.361, 36.847, 42.271},
    Row{"Pm", 61, 38.725, 38.171, 43.826},
    Row{"Sm", 62, 40.118, 39.522, 45.413},
    Row{"Eu", 63, 41.542, 40.902, 47.038},
    Row{"Gd", 64, 42.996, 42.309, 48.697},
    Row{"Tb", 65, 44.482, 43.744, 50.382},
    Row{"Dy", 66, 45.998, 45.208, 52.119},
    Row{"Ho", 67, 47.547, 46.700, 53.877},
    Row{"Er", 68, 49.128, 48.221, 55.681},
    Row{"Tm", 69, 50.742, 49.773, 57.517},
    Row{"Yb", 70, 52.389, 51.354, 59.370},
    Row{"Lu", 71, 54.070, 52.965, 61.283},
    Row{"Hf", 72, 55.790, 54.611, 63.234},
    Row{"Ta", 73, 57.532, 56.277, 65.223},
    Row{"W", 74, 59.318, 57.982, 67.244},
    Row{"Re", 75, 61.140, 59.718, 69.310},
    Row{"Os", 76, 63.001, 61.487, 71.413},
    Row{"Ir", 77, 64.896, 63.287, 73.561},
    Row{"Pt", 78, 66.832, 65.112, 75.748},
    Row{"Au", 79, 68.804, 66.990, 77.984},
    Row{"Hg", 80, 70.819, 68.895, 80.253},
    Row{"Tl", 81, 72.872, 70.832, 82.576},
    Row{"Pb", 82, 74.969, 72.804, 84.936},
    Row{"Bi", 83, 77.108, 74.815, 87.343},
    Row{"Po", 84, 79.290, 76.862, 89.800},
    Row{"At", 85, 81.520, 78.950, 92.300},
    Row{"Rn", 86, 83.780, 81.070, 94.870},
    Row{"Fr", 87, 86.100, 83.230, 97.470},
    Row{"Ra", 88, 88.470, 85.430, 100.130},
    Row{"Ac", 89, 90.884, 87.670, 102.850},
    Row{"Th", 90, 93.350, 89.953, 105.609},
    Row{"Pa", 91, 95.868, 92.287, 108.427},
    Row{"U", 92, 98.439, 94.665, 111.300},
    Row{"Np", 93, 101.059, 97.069, 114.234},
    Row{"Pu", 94, 103.734, 99.525, 117.228},
    Row{"Am", 95, 106.472, 102.030, 120.284},
    Row{"Cm", 96, 109.271, 104.590, 123.403},
};
// clang-format on

// The differences between the K beta lines rise with powers of the atomic number; the intensities,
// after J. H. Scofield, Atomic Data and Nuclear Data Tables 14 (1974) 121, rise slowly.
std::vector<XRayLine> linesOf(const Row& row) {
    const double part = row.atomicNumber / 82.0;
    const double beta3 = row.beta1 - 0.486 * std::pow(part, 5.0);
    const double beta2 = row.beta1 + 2.364 * std::pow(part, 2.7);
    const double betas = 0.21 * std::pow(part, 0.5);
    return {{row.alpha2, 0.5 + 0.1 * std::pow(part, 3.0)},
            {row.alpha1, 1.0},
            {beta3, 0.5 * betas},
            {row.beta1, betas},
            {beta2, 0.12 * std::pow(part, 1.5)}};
}

}  // namespace

std::span<const XRayElement> xRayElements() {
    static const std::vector<XRayElement> elements = [] {
        std::vector<XRayElement> all;
        all.reserve(std::size(rows));
        for (const Row& row : rows) {
            all.push_back({row.symbol, linesOf(row)});
        }
        return all;
    }();
    return elements;
}

}  // namespace embedded::engines
