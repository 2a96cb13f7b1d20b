#pragma once
// Keeping passwords given in a device string ("user:password@host") off the screen.
#include <string>
#include <string_view>

namespace vmio::cli {

// "user:password@host:80" -> "user:***@host:80"; a device string without a password is
// returned unchanged.
std::string MaskCredentials(std::string_view device);

// text with every appearance of the device string's "user:password" replaced by "user:***",
// for messages that might quote the device string back.
std::string RedactCredentials(std::string_view text, std::string_view device);

}  // namespace vmio::cli
