#include "zentrel/networking/url_response.h"

#include <unistd.h>

#include <cctype>
#include <charconv>

#include "networking/internal/text.h"
#include "networking/internal/whole_file.h"

// ------------------------------------------------------------------------------------ ZTURLResponse

ZTURLResponse::ZTURLResponse(ZTURL url, std::optional<std::string> mimeType, std::int64_t expectedLength,
                             std::optional<std::string> encoding)
    : url_(std::move(url)),
      mimeType_(std::move(mimeType)),
      expectedLength_(expectedLength),
      encoding_(std::move(encoding)) {}

std::shared_ptr<ZTURLResponse> ZTURLResponse::create(ZTURL url, std::optional<std::string> MIMEType,
                                                     std::int64_t expectedContentLength,
                                                     std::optional<std::string> textEncodingName) {
  return std::shared_ptr<ZTURLResponse>(
      new ZTURLResponse(std::move(url), std::move(MIMEType), expectedContentLength, std::move(textEncodingName)));
}

std::string ZTURLResponse::suggestedFilename() const {
  std::string name = url_.lastPathComponent();
  if (name.empty() || name == "/") return "Unknown";
  return name;
}

ZTValue ZTURLResponse::userInfo() const {
  ZTLockGuard lock(mutex_);
  return userInfo_;
}
void ZTURLResponse::setUserInfo(ZTValue userInfo) {
  ZTLockGuard lock(mutex_);
  userInfo_ = std::move(userInfo);
}
std::optional<ZTError> ZTURLResponse::error() const {
  ZTLockGuard lock(mutex_);
  return error_;
}
void ZTURLResponse::setError(std::optional<ZTError> error) {
  ZTLockGuard lock(mutex_);
  error_ = std::move(error);
}
ZTValue ZTURLResponse::responseObject() const {
  ZTLockGuard lock(mutex_);
  return responseObject_;
}
void ZTURLResponse::setResponseObject(ZTValue object) {
  ZTLockGuard lock(mutex_);
  responseObject_ = std::move(object);
}

std::optional<std::string> ZTURLResponse::responseString() const { return responseStringFromObject(responseObject()); }
std::optional<ZTBytes> ZTURLResponse::responseData() const { return responseDataFromObject(responseObject()); }

std::optional<std::string> ZTURLResponse::responseStringFromObject(const ZTValue& object) {
  const ZTBytes* bytes = object.getIf<ZTBytes>();
  if (!bytes || !zt::networking_internal::isValidUTF8(std::span<const std::uint8_t>(*bytes))) return std::nullopt;
  return std::string(bytes->begin(), bytes->end());
}

std::optional<ZTBytes> ZTURLResponse::responseDataFromObject(const ZTValue& object) {
  if (const ZTBytes* bytes = object.getIf<ZTBytes>()) return *bytes;
  if (const std::string* text = object.getIf<std::string>()) return ZTBytes(text->begin(), text->end());
  return std::nullopt;
}

bool ZTURLResponse::saveResponseObject(const ZTValue& object, const std::string& path, ZTError* error) {
  auto data = responseDataFromObject(object);
  if (!data) return false;
  ::unlink(path.c_str());
  return zt::networking_internal::writeWholeFile(path, *data, error);
}

std::shared_ptr<ZTHTTPURLResponse> ZTURLResponse::httpResponse() {
  return std::dynamic_pointer_cast<ZTHTTPURLResponse>(shared_from_this());
}

// -------------------------------------------------------------------------------- ZTHTTPURLResponse

namespace {

std::string trim(std::string_view text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
  return std::string(text);
}

const std::string* findIgnoringCase(const std::map<std::string, std::string>& fields, std::string_view name) {
  for (const auto& [key, value] : fields) {
    if (zt::networking_internal::equalsIgnoringCase(key, name)) return &value;
  }
  return nullptr;
}

}  // namespace

ZTHTTPURLResponse::ZTHTTPURLResponse(ZTURL url, std::int64_t statusCode, std::string version,
                                     std::map<std::string, std::string> headers, std::optional<std::string> mimeType,
                                     std::int64_t expectedLength, std::optional<std::string> encoding)
    : ZTURLResponse(std::move(url), std::move(mimeType), expectedLength, std::move(encoding)),
      statusCode_(statusCode),
      version_(std::move(version)),
      headers_(std::move(headers)) {}

std::shared_ptr<ZTHTTPURLResponse> ZTHTTPURLResponse::create(ZTURL url, std::int64_t statusCode,
                                                             std::string HTTPVersion,
                                                             std::map<std::string, std::string> headerFields) {
  std::optional<std::string> mimeType;
  std::optional<std::string> encoding;
  if (const std::string* type = findIgnoringCase(headerFields, "Content-Type")) {
    std::string_view rest(*type);
    const auto semicolon = rest.find(';');
    std::string essence = trim(rest.substr(0, semicolon));
    for (auto& c : essence) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (!essence.empty()) mimeType = essence;
    std::string_view parameters = semicolon == std::string_view::npos ? std::string_view() : rest.substr(semicolon + 1);
    while (!parameters.empty()) {  // each turn consumes one parameter
      const auto next = parameters.find(';');
      std::string parameter = trim(parameters.substr(0, next));
      if (parameter.size() > 8 && zt::networking_internal::equalsIgnoringCase(parameter.substr(0, 8), "charset=")) {
        std::string value = parameter.substr(8);
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"') value = value.substr(1, value.size() - 2);
        for (auto& c : value) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        encoding = value;
      }
      if (next == std::string_view::npos) break;
      parameters.remove_prefix(next + 1);
    }
  }
  std::int64_t expected = -1;
  if (const std::string* length = findIgnoringCase(headerFields, "Content-Length")) {
    const std::string text = trim(*length);
    std::int64_t value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec == std::errc() && end == text.data() + text.size() && value >= 0) expected = value;
  }
  return std::shared_ptr<ZTHTTPURLResponse>(new ZTHTTPURLResponse(std::move(url), statusCode, std::move(HTTPVersion),
                                                                  std::move(headerFields), std::move(mimeType),
                                                                  expected, std::move(encoding)));
}

std::optional<std::string> ZTHTTPURLResponse::valueForHTTPHeaderField(std::string_view field) const {
  if (const std::string* value = findIgnoringCase(headers_, field)) return *value;
  return std::nullopt;
}

std::optional<std::string> ZTHTTPURLResponse::getValueForHTTPHeaderField(std::string_view field) const {
  auto it = headers_.find(std::string(field));
  if (it == headers_.end()) return std::nullopt;
  return it->second;
}

std::string ZTHTTPURLResponse::localizedStringForStatusCode(std::int64_t statusCode) {
  switch (statusCode) {
    case 100: return "continue";
    case 101: return "switching protocols";
    case 200: return "no error";
    case 201: return "created";
    case 202: return "accepted";
    case 204: return "no content";
    case 206: return "partial content";
    case 301: return "moved permanently";
    case 302: return "found";
    case 303: return "see other";
    case 304: return "not modified";
    case 307: return "temporarily redirected";
    case 308: return "permanent redirect";
    case 400: return "bad request";
    case 401: return "unauthorized";
    case 403: return "forbidden";
    case 404: return "not found";
    case 405: return "method not allowed";
    case 408: return "request timed out";
    case 409: return "conflict";
    case 410: return "no longer exists";
    case 413: return "request too large";
    case 429: return "too many requests";
    case 500: return "internal server error";
    case 501: return "unimplemented";
    case 502: return "bad gateway";
    case 503: return "service unavailable";
    case 504: return "gateway timed out";
    default: break;
  }
  if (statusCode >= 100 && statusCode < 200) return "informational";
  if (statusCode >= 200 && statusCode < 300) return "success";
  if (statusCode >= 300 && statusCode < 400) return "redirected";
  if (statusCode >= 400 && statusCode < 500) return "client error";
  if (statusCode >= 500 && statusCode < 600) return "server error";
  return "server error";
}
