// The methods that move a whole spectrum: one signed 32-bit content for each channel.
#ifndef PYORV3_MODULE_SPECTRUM_METHODS_H
#define PYORV3_MODULE_SPECTRUM_METHODS_H

#include <cstdint>

#include "module/binding/outcome.h"
#include "module/binding/python_reference.h"

namespace pyORV3 {

// The largest size that a spectrum's storage comes in.
inline constexpr std::int32_t maxSpectrumSize = 32768;

// A channel count rounded up to a power of two from 256 to 32,768; anything larger gives 32,768,
// zero and negative counts 256.
[[nodiscard]] constexpr std::int32_t roundedSpectrumSize(std::int64_t channelCount) noexcept {
    std::int32_t size = 256;
    while (size < channelCount && size < maxSpectrumSize) {
        size *= 2;
    }
    return size;
}

// Gives the channel contents as a tuple of ints, as many as the data source says it has channels.
// A channel count below 0 or above 65,535 is refused with badArguments.
Outcome getSpectrum(std::int32_t handle, std::int32_t unused1, std::int32_t unused2,
                    PythonReference& channels);

// Writes the ints of a tuple, of each the low 32 bits, into the channels from the first on. As
// many are written as the data source has channels; a shorter tuple is followed by zeros up to
// the next spectrum size. An object that is no tuple, a tuple of more than 32,768 items or an
// item that is no int gives badArguments before anything is written.
Outcome setSpectrum(std::int32_t handle, PyObject* channels, std::int32_t unused1,
                    std::int32_t unused2);

}  // namespace pyORV3

#endif
