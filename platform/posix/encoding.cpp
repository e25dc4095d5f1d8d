#include "platform/posix/encoding.h"

#include <iconv.h>

#include <cerrno>
#include <system_error>

namespace {

class Converter {
  public:
    Converter(const char* target, const char* source) : descriptor_(iconv_open(target, source)) {
        if (descriptor_ == invalid()) {
            throw std::system_error(errno, std::generic_category(), "iconv_open");
        }
    }
    ~Converter() { iconv_close(descriptor_); }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;
    Converter(Converter&&) = delete;
    Converter& operator=(Converter&&) = delete;

    // Converts all of source into target, which has room for the result; returns the bytes of
    // target that are left over, none where source is not in its encoding.
    std::optional<std::size_t> convert(std::string_view source, char* target, std::size_t size) {
        char* input = const_cast<char*>(source.data());  // iconv's declaration; it only reads
        std::size_t inputSize = source.size();
        const std::size_t result = iconv(descriptor_, &input, &inputSize, &target, &size);
        return result != static_cast<std::size_t>(-1) ? std::optional(size) : std::nullopt;
    }

  private:
    // NOLINTNEXTLINE(performance-no-int-to-ptr): how iconv_open tells a failure
    static iconv_t invalid() { return reinterpret_cast<iconv_t>(-1); }

    iconv_t descriptor_;
};

}  // namespace

std::optional<std::wstring> platform::wideFromBytes(const char* encoding, std::string_view bytes) {
    // No encoding in use here has more characters than bytes.
    std::wstring wide(bytes.size(), L'\0');
    const auto left =
        Converter("WCHAR_T", encoding)
            .convert(bytes, reinterpret_cast<char*>(wide.data()), wide.size() * sizeof(wchar_t));
    if (!left) {
        return std::nullopt;
    }
    wide.resize(wide.size() - *left / sizeof(wchar_t));
    return wide;
}
