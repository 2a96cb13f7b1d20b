#include "credentials.h"

namespace vmio::cli {
namespace {

// The "user:password" in front of the last '@' (a password may itself hold '@' or ':'), or
// empty when the device string carries no password.
std::string_view UserInfoWithPassword(std::string_view device) {
  const size_t at = device.rfind('@');
  if (at == std::string_view::npos) return {};
  const std::string_view user_info = device.substr(0, at);
  return user_info.find(':') == std::string_view::npos ? std::string_view() : user_info;
}

std::string MaskedUserInfo(std::string_view user_info) {
  return std::string(user_info.substr(0, user_info.find(':'))) + ":***";
}

}  // namespace

std::string MaskCredentials(std::string_view device) {
  const std::string_view user_info = UserInfoWithPassword(device);
  if (user_info.empty()) return std::string(device);
  return MaskedUserInfo(user_info) + std::string(device.substr(user_info.size()));
}

std::string RedactCredentials(std::string_view text, std::string_view device) {
  const std::string_view user_info = UserInfoWithPassword(device);
  std::string out(text);
  if (user_info.empty()) return out;
  const std::string masked = MaskedUserInfo(user_info);
  for (size_t pos = 0; (pos = out.find(user_info, pos)) != std::string::npos; pos += masked.size()) {
    out.replace(pos, user_info.size(), masked);
  }
  return out;
}

}  // namespace vmio::cli
