// Text files that are there as a whole or not at all.
#pragma once

#include <filesystem>
#include <string>

namespace qx {

// The error for a file that cannot be written, with the reason that the system gave last.
[[noreturn]] void refuse_writing(const std::filesystem::path& path);

// Puts `text` in place of the file as a whole; throws CommandError.
void write_whole(const std::filesystem::path& path, const std::string& text);

}  // namespace qx
