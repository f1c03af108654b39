#include "zentrel/transfer/device_identity.h"

#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "transfer/internal/link_support.h"
#include "zentrel/platform/mutex.h"

using namespace zt::transfer_internal;

namespace {
constexpr const char* kIdentityFile = "identity.pem";
constexpr const char* kNameFile = "device-name";

ZTError identityError(ZTDeviceIdentityError code, const std::string& description) {
  return makeError(ZTDeviceIdentityErrorDomain, code, description);
}

std::string toPEM(int (*writer)(BIO*, void*), void* object) {
  BIO* bio = BIO_new(BIO_s_mem());
  if (!bio) return {};
  std::string text;
  if (writer(bio, object) == 1) {
    char* data = nullptr;
    long length = BIO_get_mem_data(bio, &data);
    if (length > 0) text.assign(data, static_cast<std::size_t>(length));
  }
  BIO_free(bio);
  return text;
}

int writeKey(BIO* bio, void* key) {
  return PEM_write_bio_PrivateKey(bio, static_cast<EVP_PKEY*>(key), nullptr, nullptr, 0, nullptr, nullptr);
}
int writeCertificate(BIO* bio, void* certificate) { return PEM_write_bio_X509(bio, static_cast<X509*>(certificate)); }

// A new Ed25519 key and a self-signed certificate for it, both PEM, key first.
std::string makeIdentityPEM(std::string* problem) {
  EVP_PKEY* key = EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519");
  X509* certificate = X509_new();
  bool ok = key && certificate;
  if (ok) {
    unsigned char serial[16];
    ok = RAND_bytes(serial, sizeof serial) == 1;
    serial[0] &= 0x7f;
    BIGNUM* number = ok ? BN_bin2bn(serial, sizeof serial, nullptr) : nullptr;
    ok = number && BN_to_ASN1_INTEGER(number, X509_get_serialNumber(certificate)) != nullptr;
    BN_free(number);
    X509_NAME* name = X509_get_subject_name(certificate);
    ok = ok && X509_set_version(certificate, 2) == 1 &&
         X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                    reinterpret_cast<const unsigned char*>("ZentrelLib hand-off device"), -1, -1, 0) == 1 &&
         X509_set_issuer_name(certificate, name) == 1 &&
         X509_gmtime_adj(X509_getm_notBefore(certificate), -24L * 3600) != nullptr &&
         X509_time_adj_ex(X509_getm_notAfter(certificate), 365 * 30, 0, nullptr) != nullptr &&
         X509_set_pubkey(certificate, key) == 1 && X509_sign(certificate, key, nullptr) > 0;
  }
  std::string pem;
  if (ok) pem = toPEM(writeKey, key) + toPEM(writeCertificate, certificate);
  if (!ok || pem.empty()) {
    if (problem) *problem = openSSLErrors("cannot make the device key and certificate");
    pem.clear();
  }
  X509_free(certificate);
  EVP_PKEY_free(key);
  return pem;
}

std::string hexOf(const unsigned char* bytes, std::size_t length) {
  static const char digits[] = "0123456789abcdef";
  std::string text;
  text.reserve(length * 2);
  for (std::size_t i = 0; i < length; ++i) {
    text += digits[bytes[i] >> 4];
    text += digits[bytes[i] & 15];
  }
  return text;
}
}  // namespace

std::optional<std::string> ZTFingerprintFromString(const std::string& text) {
  std::string canonical;
  for (char c : text) {
    if (c == ' ' || c == ':' || c == '-') continue;
    if (c >= '0' && c <= '9') canonical += c;
    else if (c >= 'a' && c <= 'f') canonical += c;
    else if (c >= 'A' && c <= 'F') canonical += static_cast<char>(c - 'A' + 'a');
    else return std::nullopt;
    if (canonical.size() > 64) return std::nullopt;
  }
  if (canonical.size() != 64) return std::nullopt;
  return canonical;
}

std::string ZTFingerprintDisplayString(const std::string& fingerprint) {
  std::string shown;
  for (std::size_t i = 0; i < fingerprint.size(); i += 4) {
    if (i > 0) shown += ' ';
    shown += fingerprint.substr(i, 4);
  }
  return shown;
}

std::string ZTFingerprintOfCertificateDER(const std::vector<std::uint8_t>& der) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_Digest(der.data(), der.size(), digest, &length, EVP_sha256(), nullptr) != 1) return {};
  return hexOf(digest, length);
}

struct ZTDeviceIdentity::Impl {
  std::string folder;
  mutable ZTMutex nameMutex;
  std::string deviceName ZT_GUARDED_BY(nameMutex);
  std::string fingerprint;
  std::vector<std::uint8_t> certificateDER;
  std::string certificatePEM;
  std::string privateKeyPEM;
};

ZTDeviceIdentity::ZTDeviceIdentity(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
ZTDeviceIdentity::~ZTDeviceIdentity() {
  if (impl_) OPENSSL_cleanse(impl_->privateKeyPEM.data(), impl_->privateKeyPEM.size());
}

std::string ZTDeviceIdentity::defaultFolder() {
  const char* config = std::getenv("XDG_CONFIG_HOME");
  std::string base;
  if (config && config[0] == '/') {
    base = config;
  } else {
    const char* home = std::getenv("HOME");
    base = std::string(home && home[0] == '/' ? home : "/tmp") + "/.config";
  }
  while (base.size() > 1 && base.back() == '/') base.pop_back();
  return base + "/zentrel/handoff";
}

std::string ZTDeviceIdentity::defaultDeviceName() {
  char host[256] = {};
  if (::gethostname(host, sizeof host - 1) == 0 && host[0] != '\0' && isValidDeviceName(host)) return host;
  return "Linux device";
}

std::shared_ptr<ZTDeviceIdentity> ZTDeviceIdentity::loadOrCreate(const std::string& requestedFolder, ZTError* error) {
  std::string folder = requestedFolder.empty() ? defaultFolder() : requestedFolder;
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  std::string problem;
  if (!makePrivateFolder(folder, &problem)) {
    ZTSetError(error, identityError(ZTDeviceIdentityErrorFolder, "The device identity folder cannot be used: " + problem + "."));
    return nullptr;
  }
  const std::string path = folder + "/" + kIdentityFile;
  std::string pem;
  int failure = 0;
  // Bounded: a second round happens only when another process made the identity at the same time.
  for (int round = 0; round < 2 && pem.empty(); ++round) {
    if (readSmallFile(path, 64 * 1024, pem, &failure)) break;
    if (failure != ENOENT) {
      ZTSetError(error, identityError(ZTDeviceIdentityErrorUnreadable,
                                      "The device identity \"" + path + "\" cannot be read: " + std::strerror(failure) + "."));
      return nullptr;
    }
    std::string made = makeIdentityPEM(&problem);
    if (made.empty()) {
      ZTSetError(error, identityError(ZTDeviceIdentityErrorCrypto, "The device identity cannot be made: " + problem + "."));
      return nullptr;
    }
    if (writeFileWhole(path, made, 0600, &failure, true)) {
      pem = std::move(made);
      break;
    }
    OPENSSL_cleanse(made.data(), made.size());
    if (failure != EEXIST) {
      ZTSetError(error, identityError(ZTDeviceIdentityErrorWrite,
                                      "The device identity \"" + path + "\" cannot be written: " + std::strerror(failure) + "."));
      return nullptr;
    }
  }

  auto impl = std::make_unique<Impl>();
  impl->folder = folder;
  BIO* keyBio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
  BIO* certificateBio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
  EVP_PKEY* key = keyBio ? PEM_read_bio_PrivateKey(keyBio, nullptr, nullptr, nullptr) : nullptr;
  X509* certificate = certificateBio ? PEM_read_bio_X509(certificateBio, nullptr, nullptr, nullptr) : nullptr;
  BIO_free(keyBio);
  BIO_free(certificateBio);
  OPENSSL_cleanse(pem.data(), pem.size());
  ZTError failed;
  bool ok = false;
  if (!key || !certificate) {
    failed = identityError(ZTDeviceIdentityErrorUnreadable,
                           "The device identity \"" + path + "\" is damaged: " + openSSLErrors("no key or certificate") + ".");
  } else if (X509_check_private_key(certificate, key) != 1) {
    failed = identityError(ZTDeviceIdentityErrorMismatch,
                           "The device identity \"" + path + "\" holds a certificate that does not belong to its key.");
  } else {
    unsigned char* der = nullptr;
    int length = i2d_X509(certificate, &der);
    if (length > 0) {
      impl->certificateDER.assign(der, der + length);
      OPENSSL_free(der);
      impl->fingerprint = ZTFingerprintOfCertificateDER(impl->certificateDER);
      impl->certificatePEM = toPEM(writeCertificate, certificate);
      impl->privateKeyPEM = toPEM(writeKey, key);
      ok = !impl->fingerprint.empty() && !impl->certificatePEM.empty() && !impl->privateKeyPEM.empty();
    }
    if (!ok) failed = identityError(ZTDeviceIdentityErrorCrypto, "The device identity cannot be encoded: " + openSSLErrors() + ".");
  }
  X509_free(certificate);
  EVP_PKEY_free(key);
  if (!ok) {
    ZTSetError(error, failed);
    return nullptr;
  }

  std::string name;
  if (readSmallFile(folder + "/" + kNameFile, 1024, name, &failure)) {
    while (!name.empty() && (name.back() == '\n' || name.back() == '\r')) name.pop_back();
  }
  {
    ZTLockGuard lock(impl->nameMutex);
    impl->deviceName = isValidDeviceName(name) ? name : defaultDeviceName();
  }
  return std::shared_ptr<ZTDeviceIdentity>(new ZTDeviceIdentity(std::move(impl)));
}

const std::string& ZTDeviceIdentity::folder() const { return impl_->folder; }
std::string ZTDeviceIdentity::deviceName() const {
  ZTLockGuard lock(impl_->nameMutex);
  return impl_->deviceName;
}
const std::string& ZTDeviceIdentity::fingerprint() const { return impl_->fingerprint; }
const std::vector<std::uint8_t>& ZTDeviceIdentity::certificateDER() const { return impl_->certificateDER; }
const std::string& ZTDeviceIdentity::certificatePEM() const { return impl_->certificatePEM; }
const std::string& ZTDeviceIdentity::privateKeyPEM() const { return impl_->privateKeyPEM; }

bool ZTDeviceIdentity::setDeviceName(const std::string& name, ZTError* error) {
  if (!isValidDeviceName(name)) {
    ZTSetError(error, identityError(ZTDeviceIdentityErrorWrite,
                                    "A device name must be one line of 1 to 255 bytes of text without control characters."));
    return false;
  }
  int failure = 0;
  const std::string path = impl_->folder + "/" + kNameFile;
  if (!writeFileWhole(path, name + "\n", 0600, &failure)) {
    ZTSetError(error, identityError(ZTDeviceIdentityErrorWrite,
                                    "The device name cannot be written to \"" + path + "\": " + std::strerror(failure) + "."));
    return false;
  }
  ZTLockGuard lock(impl_->nameMutex);
  impl_->deviceName = name;
  return true;
}
