/// Runs a target on the files of a folder, each once: the kept seeds as a test, with any
/// compiler.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv)
{
    LLVMFuzzerInitialize(&argc, &argv);
    int count = 0;
    for (const auto& file : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream stream(file.path(), std::ios::binary);
        const std::string input((std::istreambuf_iterator<char>(stream)), {});
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
        ++count;
    }
    std::printf("%d inputs\n", count);
    return count == 0 ? 1 : 0;
}
