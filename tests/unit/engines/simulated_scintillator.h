// Spectra of scintillators by a small Monte Carlo calculation: photons in a sphere, with Compton
// scattering, photoelectric absorption and photons that were scattered before.
#ifndef PYORV3_TESTS_UNIT_ENGINES_SIMULATED_SCINTILLATOR_H
#define PYORV3_TESTS_UNIT_ENGINES_SIMULATED_SCINTILLATOR_H

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "embedded/engines/calibration.h"
#include "embedded/engines/identification.h"
#include "tests/unit/engines/simulated_spectrum.h"

namespace simulated {

struct Scintillator {
    const char* name;
    double resolution;     // FWHM at 662 keV
    double photoelectric;  // energy in keV at which absorption and scattering are equally frequent
    double radius;         // in mean free paths at 511 keV
    double gain = 1.0;     // ratio of the true gain to that of the calibration
};

class ScintillatorSpectrum {
  public:
    static constexpr std::size_t channels = 1024;
    static constexpr double energyPerChannel = 2.8;

    ScintillatorSpectrum(const Scintillator& detector, std::uint64_t seed)
        : detector_(detector), random_(repeatableRandom(seed)), contents_(channels) {}

    // Returns the calibration for the engine, without the gain of the detector.
    embedded::engines::Calibration calibration() const {
        return {{0.0, energyPerChannel},
                {0.0, detector_.resolution * detector_.resolution * 661.66},
                {}};
    }

    // counts: detected photons of all lines. The weights of the lines are photons per decay.
    void addNuclide(const std::vector<embedded::engines::ExpectedLine>& lines, int counts) {
        std::vector<double> photons;
        photons.reserve(lines.size());
        for (const auto& line : lines) {
            photons.push_back(line.weight);
        }
        std::discrete_distribution<std::size_t> choose(photons.begin(), photons.end());
        while (counts > 0) {
            const double energy = lines[choose(random_)].energy;
            const bool isScattered = uniform() < 0.2;
            const double part =
                deposit(isScattered ? scattered(energy, scatteringCosine(energy)) : energy);
            if (part > 10.0) {
                count(part);
                --counts;
            }
        }
    }

    // Adds an exponential continuum.
    void addContinuum(int counts) {
        std::exponential_distribution<double> energies(1.0 / 250.0);
        for (; counts > 0; --counts) {
            count(energies(random_));
        }
    }

    // Returns the contents, which are 0 below the threshold.
    std::vector<double> contents() const {
        std::vector<double> contents(contents_);
        std::fill_n(contents.begin(), 10, 0.0);
        return contents;
    }

  private:
    static constexpr double electronMass = embedded::engines::electronMass;

    double uniform() { return std::uniform_real_distribution<double>(0.0, 1.0)(random_); }

    // Returns the energy of a photon scattered at an angle with this cosine.
    static double scattered(double energy, double cosine) {
        return energy / (1.0 + energy / electronMass * (1.0 - cosine));
    }
    double scatteringCosine(double energy) {
        for (;;) {
            const double cosine = 2.0 * uniform() - 1.0;
            const double part = scattered(energy, cosine) / energy;
            if (2.0 * uniform() < part * part * (part + 1.0 / part - 1.0 + cosine * cosine)) {
                return cosine;
            }
        }
    }

    // Returns the energy that a photon deposits on a path of random length in the detector; 0 if it
    // passes through.
    double deposit(double energy) {
        double sum = 0.0;
        double rest = 2.0 * detector_.radius * std::sqrt(uniform());
        while (true) {
            const double scattering = std::pow(electronMass / energy, 0.4);
            const double absorption = scattering * std::pow(detector_.photoelectric / energy, 2.8);
            const double path = -std::log(1.0 - uniform()) / (scattering + absorption);
            if (path > rest) {
                return sum;
            }
            if (uniform() * (scattering + absorption) < absorption || energy < 10.0) {
                return sum + energy;
            }
            const double left = scattered(energy, scatteringCosine(energy));
            sum += energy - left;
            energy = left;
            rest = detector_.radius * uniform();
        }
    }

    void count(double energy) {
        const double sigma =
            detector_.resolution * std::sqrt(661.66 * std::max(energy, 0.0)) / fwhmPerSigma;
        const double shown =
            detector_.gain * std::normal_distribution<double>(energy, sigma)(random_);
        const long index = std::lround(shown / energyPerChannel) - 1;
        if (index >= 0 && static_cast<std::size_t>(index) < channels) {
            ++contents_[static_cast<std::size_t>(index)];
        }
    }

    Scintillator detector_;
    std::mt19937_64 random_;
    std::vector<double> contents_;
};

}  // namespace simulated

#endif
