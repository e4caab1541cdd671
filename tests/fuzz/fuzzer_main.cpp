// One program for all targets: $QUORIX_FUZZ_TARGET names the one. Besides the fuzzer's own changes,
// numbers of the input are replaced by extremes: header words, or tokens of texts.
#include "fuzz/target.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t most);

namespace {

const qx::fuzz::Target& target() {
  static const qx::fuzz::Target* found = [] {
    const char* name = std::getenv("QUORIX_FUZZ_TARGET");
    for (const qx::fuzz::Target& t : qx::fuzz::targets()) {
      if (name && std::strcmp(name, t.name) == 0) return &t;
    }
    std::fprintf(stderr, "QUORIX_FUZZ_TARGET names none of the targets\n");
    std::exit(2);
  }();
  return *found;
}

class Chance {
 public:
  explicit Chance(unsigned seed) : state_(seed | 1U) {}
  std::size_t below(std::size_t n) {
    state_ = state_ * 1103515245U + 12345U;
    return n == 0 ? 0 : (state_ >> 8U) % n;
  }

 private:
  unsigned state_;
};

std::size_t replace_word(std::uint8_t* data, std::size_t size, Chance& chance) {
  constexpr std::uint32_t extremes[] = {0U,          1U,          0xFFFFFFFFU, 0x7FFFFFFFU,
                                        0x80000000U, 0x7F800000U, 0x7FC00000U, 0x7F7FFFFFU,
                                        0x00FFFFFFU, 0x10000U,    0xFF800000U, 2U};
  const std::size_t words = size / 4;
  if (words == 0) return size;
  // Headers stand at the beginning, or at the end.
  const std::size_t at =
      chance.below(4) == 0 ? chance.below(words) : chance.below(words < 256 ? words : 256);
  std::memcpy(data + 4 * at, &extremes[chance.below(std::size(extremes))], 4);
  return size;
}

std::size_t replace_token(std::uint8_t* data, std::size_t size, std::size_t most, Chance& chance) {
  constexpr const char* extremes[] = {"0",   "-1",    "2147483647", "-2147483648", "99999999999",
                                      "nan", "inf",   "1e308",      "-1e-308",     "1e39",
                                      "\"",  "65536", "0.0000001",  "-99999.0"};
  std::string text(reinterpret_cast<const char*>(data), size);
  const std::size_t from = chance.below(size);
  const std::size_t start = text.find_first_not_of(" \n\t,=", from);
  if (start == std::string::npos) return size;
  const std::size_t end = text.find_first_of(" \n\t,=", start);
  text.replace(start, (end == std::string::npos ? text.size() : end) - start,
               extremes[chance.below(std::size(extremes))]);
  if (text.size() > most) return size;
  std::memcpy(data, text.data(), text.size());
  return text.size();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  qx::fuzz::set_up_process();
  (void)target();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  target().run({data, size});
  return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t most, unsigned seed) {
  Chance chance(seed);
  if (chance.below(2) == 0 || size == 0) return LLVMFuzzerMutate(data, size, most);
  return target().text ? replace_token(data, size, most, chance) : replace_word(data, size, chance);
}
