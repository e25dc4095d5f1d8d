// Methods that read or write a whole spectrum: one signed 32-bit content for each channel.
#ifndef PYORV3_MODULE_SPECTRUM_METHODS_H
#define PYORV3_MODULE_SPECTRUM_METHODS_H

#include <cstdint>

#include "module/binding/outcome.h"
#include "module/binding/python_reference.h"

namespace pyORV3 {

// The maximum number of channels that a spectrum is created with.
inline constexpr std::int32_t maxSpectrumSize = 32768;

// Returns the channel count rounded up to a power of two from 256 to 32,768; larger counts give
// 32,768, zero and negative counts 256.
[[nodiscard]] constexpr std::int32_t roundedSpectrumSize(std::int64_t channelCount) noexcept {
    std::int32_t size = 256;
    while (size < channelCount && size < maxSpectrumSize) {
        size *= 2;
    }
    return size;
}

// Returns the channel contents as a tuple of ints with the channel count of the data source. A
// channel count below 0 or above 65,535 gives badArguments.
Outcome getSpectrum(std::int32_t handle, std::int32_t unused1, std::int32_t unused2,
                    PythonReference& channels);

// Writes the low 32 bits of each int of a tuple, starting at channel 1, up to the channel count of
// the data source. A shorter tuple is extended with zeros to the next spectrum size. An object
// other than a tuple, more than 32,768 items or an item that is not an int give badArguments before
// anything is written.
Outcome setSpectrum(std::int32_t handle, PyObject* channels, std::int32_t unused1,
                    std::int32_t unused2);

}  // namespace pyORV3

#endif
