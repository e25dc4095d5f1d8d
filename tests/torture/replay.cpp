// Runs files through the fuzzed readers (fuzz.cpp) if libFuzzer is not available.
//
//   torture_replay FILE|FOLDER...
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerInitialize(int* argumentCount, char*** arguments);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argumentCount, char** arguments) {
    LLVMFuzzerInitialize(&argumentCount, &arguments);
    int inputs = 0;
    for (int argument = 1; argument < argumentCount; ++argument) {
        for (const auto& entry :
             std::filesystem::recursive_directory_iterator(arguments[argument])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string input{std::istreambuf_iterator<char>(file), {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()),
                                   input.size());
            ++inputs;
        }
    }
    std::printf("tried %d inputs of the fuzzed readers\n", inputs);
    return inputs > 0 ? 0 : 1;
}
