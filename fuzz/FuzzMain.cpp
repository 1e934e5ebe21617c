// The standalone driver of the fuzz targets in the normal build: runs the target's
// LLVMFuzzerTestOneInput once over every file in the directories (or files) named on
// the command line, so that each corpus and its regressions replay as a plain test
// with any compiler. With -fsanitize=fuzzer the libFuzzer main is used instead and
// this file is not compiled.
//
//   r2l_frame_fuzz fuzz/corpus/r2l_frame fuzz/regressions/r2l_frame
//
// Exits 0 when every input ran (a finding aborts, as under libFuzzer), 1 when a
// directory cannot be read or holds no input at all: a corpus that went missing must
// not pass as a green replay.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

bool runFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "cannot read %s\n", path.c_str());
    return false;
  }
  const std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  size_t inputs = 0;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path arg(argv[i]);
    std::error_code ec;
    if (!std::filesystem::is_directory(arg, ec)) {
      if (!runFile(arg)) return 1;
      ++inputs;
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(arg, ec)) {
      // Dot files (.gitkeep) keep empty folders in the repository; they are no input.
      if (!entry.is_regular_file() || entry.path().filename().string().starts_with(".")) continue;
      if (!runFile(entry.path())) return 1;
      ++inputs;
    }
    if (ec) {
      std::fprintf(stderr, "cannot list %s: %s\n", argv[i], ec.message().c_str());
      return 1;
    }
  }
  std::printf("%zu inputs replayed\n", inputs);
  return inputs > 0 ? 0 : 1;
}
