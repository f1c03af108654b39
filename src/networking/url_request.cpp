#include "zentrel/networking/url_request.h"

#include <sys/stat.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "networking/internal/text.h"
#include "zentrel/platform/log.h"

using zt::networking_internal::describeCurrentException;

bool ZTCaseInsensitiveLess::operator()(std::string_view a, std::string_view b) const {
  const std::size_t n = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < n; ++i) {
    unsigned char x = static_cast<unsigned char>(a[i]);
    unsigned char y = static_cast<unsigned char>(b[i]);
    if (x >= 'A' && x <= 'Z') x = static_cast<unsigned char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<unsigned char>(y - 'A' + 'a');
    if (x != y) return x < y;
  }
  return a.size() < b.size();
}

ZTURLRequest::ZTURLRequest(ZTURL url, ZTURLRequestCachePolicy cachePolicy, Seconds timeoutInterval)
    : url_(std::move(url)), timeout_(timeoutInterval), cachePolicy_(cachePolicy) {}

std::optional<std::string> ZTURLRequest::valueForHTTPHeaderField(std::string_view field) const {
  auto it = headers_.find(field);
  if (it == headers_.end()) return std::nullopt;
  return it->second;
}

ZTMutableURLRequest ZTURLRequest::mutableCopy() const { return ZTMutableURLRequest(*this); }

std::string ZTURLRequest::requestToString() const {
  std::string fields = "(null)";
  if (!headers_.empty()) {
    ZTValue dictionary = ZTValue::dictionary();
    for (const auto& [name, value] : headers_) dictionary[name] = ZTValue(value);
    fields = dictionary.description();
  }
  std::string body = "(null)";
  if (body_ && zt::networking_internal::isValidUTF8(std::span<const std::uint8_t>(*body_))) {
    body.assign(body_->begin(), body_->end());
  }
  return "[" + method_ + "]URL: " + url_.absoluteString() + "\nHeaderFields: " + fields + "\nBody: " + body;
}

ZTMutableURLRequest ZTURLRequest::RFC2616RedirectRequestFromRequest(const ZTURLRequest& proposedRequest) const {
  ZTMutableURLRequest redirect(*this);
  redirect.setURL(proposedRequest.URL());
  if (replaceHeadersOnRedirect_) redirect.setAllHTTPHeaderFields(proposedRequest.allHTTPHeaderFields());
  return redirect;
}

std::string ZTURLRequest::guessContentTypeForURL(const ZTURL& url, std::string_view /*defaultEncoding*/) {
  return url.MIMETypeByExtension();
}

void ZTMutableURLRequest::setValue(const std::optional<std::string>& value, std::string_view field) {
  auto it = headers_.find(field);
  if (!value) {
    if (it != headers_.end()) headers_.erase(it);
    return;
  }
  if (it != headers_.end()) {
    it->second = *value;
  } else {
    headers_.emplace(std::string(field), *value);
  }
}

void ZTMutableURLRequest::addValue(std::string_view value, std::string_view field) {
  auto it = headers_.find(field);
  if (it == headers_.end()) {
    headers_.emplace(std::string(field), std::string(value));
  } else {
    it->second += ", ";
    it->second += value;
  }
}

void ZTMutableURLRequest::setHTTPBody(std::optional<ZTBytes> body) {
  body_ = std::move(body);
  if (body_) bodyStream_.reset();
}

void ZTMutableURLRequest::setHTTPBodyStream(std::shared_ptr<ZTInputStream> stream) {
  bodyStream_ = std::move(stream);
  if (bodyStream_) body_.reset();
}

void ZTMutableURLRequest::postBodyCheckAndSetContentType(const std::optional<std::string>& contentType) {
  if (method_ == "GET") ZTLog("NSMutableURLRequest: trying to set post body for GET request");
  if (contentType) setValue(*contentType, "Content-Type");
}

void ZTMutableURLRequest::setHTTPBodyStream(std::shared_ptr<ZTInputStream> stream,
                                            const std::optional<std::string>& contentType) {
  postBodyCheckAndSetContentType(contentType);
  setHTTPBodyStream(std::move(stream));
}

void ZTMutableURLRequest::setHTTPBodyData(ZTBytes data, const std::optional<std::string>& contentType) {
  postBodyCheckAndSetContentType(contentType);
  char length[32];
  std::snprintf(length, sizeof length, "%lu", static_cast<unsigned long>(data.size()));
  setValue(std::string(length), "Content-Length");
  setHTTPBody(std::move(data));
}

void ZTMutableURLRequest::setHTTPBodyFilePath(const std::string& path, bool guessContentType) {
  struct stat info {};
  if (path.empty() || ::stat(path.c_str(), &info) != 0) {
    ZTLogf("NSMutableURLRequest: not-existing file %s in setHTTPBodyFilePath", path.c_str());
    return;
  }
  std::optional<std::string> contentType;
  if (guessContentType) contentType = guessContentTypeForURL(ZTURL::fileURLWithPath(path), "UTF-8");
  char length[32];
  std::snprintf(length, sizeof length, "%llu", static_cast<unsigned long long>(info.st_size));
  setValue(std::string(length), "Content-Length");
  setHTTPBodyStream(ZTInputStream::inputStreamWithFileAtPath(path), contentType);
  postBodyFilePath_ = path;
}

std::shared_ptr<ZTInputStream> ZTMutableURLRequest::regenerateBodyStream() const {
  if (postBodyFilePath_) return ZTInputStream::inputStreamWithFileAtPath(*postBodyFilePath_);
  if (bodyStreamCreation_) {
    std::shared_ptr<ZTInputStream> stream;
    try {
      stream = bodyStreamCreation_();
    } catch (...) {
      ZTLogf("NSMutableURLRequest: HTTPBodyStreamCreationBlock threw: %s", describeCurrentException().c_str());
    }
    if (stream) return stream;
  }
  ZTLog("NSMutableURLRequest: regenerateBodyStream was called, but we returned nil");
  return nullptr;
}
