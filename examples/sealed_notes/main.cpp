// A note sealed with a pass phrase (AES-256), packed with gzip, and checked with a digest, then
// opened again.
//
// Build on its own against an installed ZentrelLib:
//   cmake -S . -B build && cmake --build build && ./build/sealed_notes

#include <zentrel/text/aes.h>
#include <zentrel/text/digest.h>
#include <zentrel/text/gzip.h>
#include <zentrel/text/string_format.h>

#include <cstdint>
#include <iostream>
#include <span>
#include <string>

int main() {
  const std::string note = "Meet at the harbour at 6. Bring the charts.";
  const std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t*>(note.data()), note.size());

  const auto sealed = zt::ztAES256EncryptWithKey(bytes, "correct horse battery staple");
  if (!sealed) return 1;
  const auto opened = zt::ztAES256DecryptWithKey(*sealed, "correct horse battery staple");
  const auto wrongKey = zt::ztAES256DecryptWithKey(*sealed, "a guess");
  const bool intact = opened && std::string(opened->begin(), opened->end()) == note;

  std::string many;
  for (int i = 0; i < 50; ++i) many += note;
  const auto packed = zt::gzipDeflate(std::span<const std::uint8_t>(reinterpret_cast<const std::uint8_t*>(many.data()), many.size()));

  std::cout << zt::copyZentrelStringWithFormat("sealed %d bytes into %d; opened %s; a wrong key %s\n",
                                               static_cast<int>(note.size()), static_cast<int>(sealed->size()),
                                               std::string(intact ? "intact" : "DAMAGED"),
                                               std::string(wrongKey && std::string(wrongKey->begin(), wrongKey->end()) == note ? "OPENED IT" : "did not open it"))
            << "SHA-256 of the note: " << zt::sha256(note) << "\n"
            << "gzip: " << many.size() << " bytes packed into " << (packed ? packed->size() : 0) << "\n";
  return intact && packed ? 0 : 1;
}
