#pragma once
// Reading the small text files the system queries answer from (/proc, /sys, /etc, XDG folders),
// and the key-value forms they come in. Every query has a form that takes a root folder prefixed
// to the absolute paths it reads ("" for the real machine), so tests can lay out a machine of
// their own in a temporary folder, and parse functions that take the captured text itself.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zt::system_internal {

// The whole file, or nullopt when it cannot be opened or read, or holds more than maxBytes
// (the answer would be cut and so wrong). Interrupted reads are retried; reads are bounded.
std::optional<std::string> readTextFile(const std::string& path, std::size_t maxBytes = 1u << 20);

// The first line of the file with surrounding white space removed; nullopt when the file cannot
// be read or that line is empty.
std::optional<std::string> readFirstLine(const std::string& path, std::size_t maxBytes = 64u * 1024u);

std::string_view trimmed(std::string_view text);

// A decimal unsigned number filling the whole text (after trimming); nullopt for anything else,
// including overflow.
std::optional<std::uint64_t> parseUnsigned(std::string_view text);

// The value of "Key: <number> kB" in /proc/meminfo text, in bytes; a value without unit is taken
// as bytes. nullopt when the key is absent or its value is not a number.
std::optional<std::uint64_t> meminfoBytes(std::string_view meminfo, std::string_view key);

std::uint64_t freeMemoryFromMeminfo(std::string_view meminfo);
std::uint64_t otherMemoryFromMeminfo(std::string_view meminfo);

std::uint64_t freeMemoryAmountAt(const std::string& root);
std::uint64_t otherMemoryAmountAt(const std::string& root);

}  // namespace zt::system_internal
