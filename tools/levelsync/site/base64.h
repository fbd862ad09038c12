// base64.h - bytes as letters and digits, as etcd's gateway has them.

#ifndef LEVELSYNC_SITE_BASE64_H
#define LEVELSYNC_SITE_BASE64_H

#include <optional>
#include <string>
#include <string_view>

namespace levelsync
{
std::string base64_of(std::string_view bytes);

/// Nothing for what is none.
std::optional<std::string> read_base64(std::string_view text);
} // namespace levelsync

#endif // LEVELSYNC_SITE_BASE64_H
