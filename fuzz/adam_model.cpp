// The ADAM model answer: a model text, or run-time error 5 when the answer has no CR.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>

#include "devices/adam/adam.h"
#include "vmio/error.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::array<uint8_t, 20> answer{};  // the driver reads at most 20 bytes into zeros
  std::copy_n(data, std::min(size, answer.size()), answer.begin());
  try {
    const std::string model = vmio::AdamModelFromAnswer(answer);
    if (model.find('\r') != std::string::npos) std::abort();
  } catch (const vmio::AutomationError& e) {
    if (e.Number() != 5) std::abort();
  }
  return 0;
}
