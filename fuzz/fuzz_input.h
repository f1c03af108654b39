#pragma once
// How the targets here read their bytes: LLVM's FuzzedDataProvider, texts first. A text ends at a
// backslash followed by any other character ("\\" stands for one backslash), so a corpus file
// written by hand reads as its texts separated by "\|": "Report.pdf\|Report (conflicted copy
// 2024-03-05 140733).pdf". Numbers and choices are taken from the end of the bytes.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <string>

namespace zt_fuzz {

inline std::string text(FuzzedDataProvider& input, std::size_t maxLength = 1024) {
  return input.ConsumeRandomLengthString(maxLength);
}

}  // namespace zt_fuzz
