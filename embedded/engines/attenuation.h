// Attenuation of gamma rays by absorbers.
#ifndef PYORV3_EMBEDDED_ENGINES_ATTENUATION_H
#define PYORV3_EMBEDDED_ENGINES_ATTENUATION_H

namespace embedded::engines {

// Mass attenuation coefficients in cm2/g.
struct Attenuation {
    double lead;
    double iron;
};

// energy: keV, positive. Beyond the table (10 to 3,000 keV) returns its nearest row.
Attenuation attenuationAt(double energy);

}  // namespace embedded::engines

#endif
