#pragma once
// Bodies and files as text, for comparing with what a peer sent.
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace vmio::test {

inline std::string Text(const std::vector<uint8_t>& bytes) { return std::string(bytes.begin(), bytes.end()); }

inline std::string ReadFile(const std::string& name) {
  std::ifstream in(name, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace vmio::test
