#pragma once
// ZTURLRequest and ZTMutableURLRequest: what ZTURLSession sends — a URL, a method, header fields,
// a body (bytes, or a stream read while sending), a timeout and cache and cookie policies — plus
// the values an application's networking layer attaches to a request (the file a body was read
// from, a way to make the body stream again, content length, local and chunk file paths, and how a
// redirect treats header fields).
//
// Values: a request is copied with its members (a copy shares the body stream object, which can be
// read only once: see regenerateBodyStream()). ZTURLRequest can be read from several threads at
// once; mutating a request while another thread reads it is a data race, as for any value.
//
// Header fields are looked up and replaced without regard to letter case; the name keeps the case
// it was first set with.
//
// Bad input: nothing here throws on a bad argument; a missing body file is logged and ignored.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "zentrel/networking/url.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/stream.h"
#include "zentrel/platform/value.h"

// Orders header names without regard to ASCII letter case.
struct ZT_API ZTCaseInsensitiveLess {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const;
};
using ZTHTTPHeaderFields = std::map<std::string, std::string, ZTCaseInsensitiveLess>;

// How a response may come from a cache. The session keeps no cache of its own: every policy loads
// from the network, except ReturnCacheDataDontLoad, which fails with ZTURLErrorResourceUnavailable.
enum class ZTURLRequestCachePolicy {
  UseProtocolCachePolicy = 0,
  ReloadIgnoringLocalCacheData = 1,
  ReturnCacheDataElseLoad = 2,
  ReturnCacheDataDontLoad = 3,
};

class ZTMutableURLRequest;

class ZT_API ZTURLRequest {
 public:
  using Seconds = double;
  // Makes a fresh body stream for resending the request; may return null. May throw (the caller
  // logs it and takes it as null).
  using BodyStreamCreationBlock = std::function<std::shared_ptr<ZTInputStream>()>;

  ZTURLRequest() = default;
  explicit ZTURLRequest(ZTURL url, ZTURLRequestCachePolicy cachePolicy = ZTURLRequestCachePolicy::UseProtocolCachePolicy,
                        Seconds timeoutInterval = 60.0);
  virtual ~ZTURLRequest() = default;
  ZTURLRequest(const ZTURLRequest&) = default;
  ZTURLRequest& operator=(const ZTURLRequest&) = default;

  const ZTURL& URL() const { return url_; }
  // "GET" unless set.
  const std::string& HTTPMethod() const { return method_; }
  const ZTHTTPHeaderFields& allHTTPHeaderFields() const { return headers_; }
  // Case-insensitive lookup.
  std::optional<std::string> valueForHTTPHeaderField(std::string_view field) const;
  const std::optional<ZTBytes>& HTTPBody() const { return body_; }
  const std::shared_ptr<ZTInputStream>& HTTPBodyStream() const { return bodyStream_; }
  // Seconds without any data moving after which the request fails with ZTURLErrorTimedOut.
  Seconds timeoutInterval() const { return timeout_; }
  ZTURLRequestCachePolicy cachePolicy() const { return cachePolicy_; }
  // Whether the session sends and stores cookies for this request (in the session's own cookie
  // store, which lives in memory for the session's life).
  bool HTTPShouldHandleCookies() const { return handleCookies_; }

  ZTMutableURLRequest mutableCopy() const;

  // Values an application attaches. They travel with copies and redirects.
  const std::optional<std::int64_t>& requestContentLength() const { return contentLength_; }
  void setRequestContentLength(std::optional<std::int64_t> length) { contentLength_ = length; }
  const std::optional<std::string>& localFilePath() const { return localFilePath_; }
  void setLocalFilePath(std::optional<std::string> path) { localFilePath_ = std::move(path); }
  const std::optional<std::string>& chunkFilePath() const { return chunkFilePath_; }
  void setChunkFilePath(std::optional<std::string> path) { chunkFilePath_ = std::move(path); }
  // When true, a redirect built by RFC2616RedirectRequestFromRequest() takes the proposed
  // request's header fields instead of this one's. False unless set.
  bool shouldReplaceHTTPHeaderFieldsOnRFC2616RedirectBehaviour() const { return replaceHeadersOnRedirect_; }
  void setShouldReplaceHTTPHeaderFieldsOnRFC2616RedirectBehaviour(bool replace) { replaceHeadersOnRedirect_ = replace; }
  // The path of the file the body is read from (set by setHTTPBodyFilePath), or nullopt.
  const std::optional<std::string>& postBodyFilePath() const { return postBodyFilePath_; }
  const BodyStreamCreationBlock& HTTPBodyStreamCreationBlock() const { return bodyStreamCreation_; }

  // "[<method>]URL: <absolute URL>\nHeaderFields: <fields>\nBody: <body>", with the fields as a
  // dictionary description and the body decoded as UTF-8; "(null)" for no fields, and for no body or
  // a body that is not UTF-8.
  std::string requestToString() const;

  // The request to follow a redirect with: a copy of this request (method, body, body stream,
  // timeout, policies and attached values kept) with the proposed request's URL. Header fields stay
  // this request's, unless shouldReplaceHTTPHeaderFieldsOnRFC2616RedirectBehaviour() is true: then
  // they are exactly the proposed request's. Method and body never change.
  ZTMutableURLRequest RFC2616RedirectRequestFromRequest(const ZTURLRequest& proposedRequest) const;

  // The MIME type of the URL's path extension (see ZTURL::MIMETypeByExtension); the encoding is
  // not used.
  static std::string guessContentTypeForURL(const ZTURL& url, std::string_view defaultEncoding);

 protected:
  ZTURL url_;
  std::string method_ = "GET";
  ZTHTTPHeaderFields headers_;
  std::optional<ZTBytes> body_;
  std::shared_ptr<ZTInputStream> bodyStream_;
  Seconds timeout_ = 60.0;
  ZTURLRequestCachePolicy cachePolicy_ = ZTURLRequestCachePolicy::UseProtocolCachePolicy;
  bool handleCookies_ = true;

  std::optional<std::int64_t> contentLength_;
  std::optional<std::string> localFilePath_;
  std::optional<std::string> chunkFilePath_;
  bool replaceHeadersOnRedirect_ = false;
  std::optional<std::string> postBodyFilePath_;
  BodyStreamCreationBlock bodyStreamCreation_;
};

class ZT_API ZTMutableURLRequest : public ZTURLRequest {
 public:
  using ZTURLRequest::ZTURLRequest;
  ZTMutableURLRequest() = default;
  explicit ZTMutableURLRequest(const ZTURLRequest& request) : ZTURLRequest(request) {}

  void setURL(ZTURL url) { url_ = std::move(url); }
  // Any text; the session sends it as it is (an empty method counts as "GET").
  void setHTTPMethod(std::string method) { method_ = std::move(method); }
  // Replaces the field of that name (any case); nullopt removes it.
  void setValue(const std::optional<std::string>& value, std::string_view field);
  // Appends to the field's value after ", ", or sets it.
  void addValue(std::string_view value, std::string_view field);
  void setAllHTTPHeaderFields(ZTHTTPHeaderFields fields) { headers_ = std::move(fields); }
  // Setting a body removes the body stream, and the other way round.
  void setHTTPBody(std::optional<ZTBytes> body);
  void setHTTPBodyStream(std::shared_ptr<ZTInputStream> stream);
  void setTimeoutInterval(Seconds seconds) { timeout_ = seconds; }
  void setCachePolicy(ZTURLRequestCachePolicy policy) { cachePolicy_ = policy; }
  void setHTTPShouldHandleCookies(bool handle) { handleCookies_ = handle; }

  void setPostBodyFilePath(std::optional<std::string> path) { postBodyFilePath_ = std::move(path); }
  void setHTTPBodyStreamCreationBlock(BodyStreamCreationBlock block) { bodyStreamCreation_ = std::move(block); }

  // Logs "NSMutableURLRequest: trying to set post body for GET request" when the method is "GET"
  // (and goes on); a contentType is set as the "Content-Type" field.
  void postBodyCheckAndSetContentType(const std::optional<std::string>& contentType);
  // The above, then the stream becomes the body. No length field.
  void setHTTPBodyStream(std::shared_ptr<ZTInputStream> stream, const std::optional<std::string>& contentType);
  // The above, "Content-Length" set to the data's length, then the data becomes the body.
  void setHTTPBodyData(ZTBytes data, const std::optional<std::string>& contentType);
  // The body read from the file at path: "Content-Length" is its size, the content type is guessed
  // from its extension when asked, and postBodyFilePath() records the path. A missing file logs
  // "NSMutableURLRequest: not-existing file <path> in setHTTPBodyFilePath" and changes nothing.
  void setHTTPBodyFilePath(const std::string& path, bool guessContentType);
  // A fresh body stream for resending: a new stream on postBodyFilePath() when recorded, else the
  // creation block's stream when it gives one, else null after logging
  // "NSMutableURLRequest: regenerateBodyStream was called, but we returned nil". The request is not
  // changed.
  std::shared_ptr<ZTInputStream> regenerateBodyStream() const;
};
