#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "common/log_and_environment.h"
#include "zentrel/networking/url_request.h"
#include "zentrel/networking/url_response.h"

namespace {

ZTURL url(const char* text) { return *ZTURL::URLWithString(text); }

std::string readAll(const std::shared_ptr<ZTInputStream>& stream) {
  std::string out;
  stream->open();
  std::uint8_t buffer[256];
  for (int i = 0; i < 10000; ++i) {
    const auto n = stream->read(buffer, sizeof buffer);
    if (n <= 0) break;
    out.append(reinterpret_cast<char*>(buffer), static_cast<std::size_t>(n));
  }
  stream->close();
  return out;
}

class RequestBodies : public ::testing::Test {
 protected:
  std::filesystem::path folder;
  void SetUp() override {
    char pattern[] = "/tmp/zt-request-test-XXXXXX";
    folder = ::mkdtemp(pattern);
  }
  void TearDown() override { std::filesystem::remove_all(folder); }
};

TEST_F(RequestBodies, DataStreamAndFileBodiesSetTheirFieldsAndLogForGET) {
  zt::test::LogCapture log;
  ZTMutableURLRequest request(url("http://h/upload"));
  request.setHTTPBodyData(ZTBytes{'h', 'i'}, std::string("text/plain"));
  EXPECT_EQ(request.valueForHTTPHeaderField("content-type"), "text/plain");
  EXPECT_EQ(request.valueForHTTPHeaderField("CONTENT-LENGTH"), "2");
  EXPECT_EQ(request.HTTPBody(), (ZTBytes{'h', 'i'}));

  request.setHTTPMethod("POST");
  request.setHTTPBodyStream(ZTInputStream::inputStreamWithData(ZTBytes{'s'}), std::nullopt);
  EXPECT_FALSE(request.HTTPBody().has_value());
  EXPECT_EQ(request.valueForHTTPHeaderField("Content-Type"), "text/plain");  // nullopt type changes nothing
  EXPECT_EQ(request.allHTTPHeaderFields().size(), 2u);

  const auto path = (folder / "photo.png").string();
  std::ofstream(path) << "12345";
  request.setHTTPBodyFilePath(path, true);
  EXPECT_EQ(request.valueForHTTPHeaderField("Content-Type"), "image/png");
  EXPECT_EQ(request.valueForHTTPHeaderField("Content-Length"), "5");
  EXPECT_EQ(request.postBodyFilePath(), path);
  EXPECT_EQ(readAll(request.HTTPBodyStream()), "12345");

  EXPECT_EQ(log.lines(), std::vector<std::string>{"NSMutableURLRequest: trying to set post body for GET request"});
}

TEST_F(RequestBodies, MissingBodyFileLeavesTheRequestUntouched) {
  zt::test::LogCapture log;
  ZTMutableURLRequest request(url("http://h/"));
  request.setHTTPMethod("POST");
  request.setValue(std::string("keep"), "X-A");
  const auto before = request.requestToString();
  const auto missing = (folder / "missing.bin").string();
  request.setHTTPBodyFilePath(missing, true);
  EXPECT_EQ(request.requestToString(), before);
  EXPECT_EQ(request.postBodyFilePath(), std::nullopt);
  EXPECT_EQ(request.HTTPBodyStream(), nullptr);
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"NSMutableURLRequest: not-existing file " + missing + " in setHTTPBodyFilePath"});
}

TEST_F(RequestBodies, RegenerateBodyStreamPrefersTheFileThenTheBlock) {
  zt::test::LogCapture log;
  ZTMutableURLRequest request(url("http://h/"));
  EXPECT_EQ(request.regenerateBodyStream(), nullptr);
  int calls = 0;
  request.setHTTPBodyStreamCreationBlock([&]() -> std::shared_ptr<ZTInputStream> {
    if (++calls == 2) throw std::runtime_error("no stream today");
    return ZTInputStream::inputStreamWithData(ZTBytes{'b'});
  });
  EXPECT_EQ(readAll(request.regenerateBodyStream()), "b");
  EXPECT_EQ(request.regenerateBodyStream(), nullptr);  // the block threw
  const auto path = (folder / "body.txt").string();
  std::ofstream(path) << "file body";
  request.setPostBodyFilePath(path);
  auto first = request.regenerateBodyStream();
  auto second = request.regenerateBodyStream();
  EXPECT_NE(first, second);
  EXPECT_EQ(readAll(first), "file body");
  EXPECT_EQ(readAll(second), "file body");
  EXPECT_EQ(calls, 2);
  auto lines = log.lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], "NSMutableURLRequest: regenerateBodyStream was called, but we returned nil");
  EXPECT_EQ(lines[2], "NSMutableURLRequest: regenerateBodyStream was called, but we returned nil");
}

TEST(Request, DescribesItselfAndKeepsMethodAndBodyAcrossRedirects) {
  ZTMutableURLRequest request(url("http://h/a?x=1"));
  EXPECT_EQ(request.requestToString(), "[GET]URL: http://h/a?x=1\nHeaderFields: (null)\nBody: (null)");
  request.setHTTPMethod("POST");
  request.setValue(std::string("1"), "X-Original");
  request.setHTTPBody(ZTBytes{'{', '}'});
  request.setTimeoutInterval(7);
  request.setLocalFilePath(std::string("/tmp/local"));
  request.setRequestContentLength(2);
  EXPECT_EQ(request.requestToString(), "[POST]URL: http://h/a?x=1\nHeaderFields: {\n    \"X-Original\" = 1;\n}\nBody: {}");
  request.setHTTPBody(ZTBytes{0xFF, 0xFE});
  EXPECT_TRUE(request.requestToString().ends_with("Body: (null)"));

  ZTMutableURLRequest proposed(url("http://other/b"));
  proposed.setHTTPMethod("GET");
  proposed.setValue(std::string("2"), "X-Proposed");

  auto kept = request.RFC2616RedirectRequestFromRequest(proposed);
  EXPECT_EQ(kept.URL().absoluteString(), "http://other/b");
  EXPECT_EQ(kept.HTTPMethod(), "POST");
  EXPECT_EQ(kept.HTTPBody(), request.HTTPBody());
  EXPECT_EQ(kept.timeoutInterval(), 7);
  EXPECT_EQ(kept.localFilePath(), "/tmp/local");
  EXPECT_EQ(kept.requestContentLength(), 2);
  EXPECT_EQ(kept.valueForHTTPHeaderField("X-Original"), "1");
  EXPECT_EQ(kept.valueForHTTPHeaderField("X-Proposed"), std::nullopt);

  request.setShouldReplaceHTTPHeaderFieldsOnRFC2616RedirectBehaviour(true);
  auto replaced = request.RFC2616RedirectRequestFromRequest(proposed);
  EXPECT_EQ(replaced.HTTPMethod(), "POST");
  EXPECT_EQ(replaced.valueForHTTPHeaderField("X-Original"), std::nullopt);
  EXPECT_EQ(replaced.valueForHTTPHeaderField("X-Proposed"), "2");
  EXPECT_TRUE(replaced.shouldReplaceHTTPHeaderFieldsOnRFC2616RedirectBehaviour());
  EXPECT_EQ(ZTURLRequest::guessContentTypeForURL(url("http://h/x.txt"), "ignored"), "text/plain");
}

TEST(Request, HeaderFieldsIgnoreLetterCase) {
  ZTMutableURLRequest request(url("http://h/"));
  request.setValue(std::string("a"), "Accept");
  request.addValue("b", "ACCEPT");
  EXPECT_EQ(request.valueForHTTPHeaderField("accept"), "a, b");
  EXPECT_EQ(request.allHTTPHeaderFields().begin()->first, "Accept");
  request.setValue(std::nullopt, "aCcEpT");
  EXPECT_TRUE(request.allHTTPHeaderFields().empty());
}

TEST(Response, ObjectsGiveStringsAndDataOnlyAsWritten) {
  auto response = ZTURLResponse::create(url("http://h/file.txt"), "text/plain", 3, std::nullopt);
  EXPECT_EQ(response->httpResponse(), nullptr);
  EXPECT_EQ(response->suggestedFilename(), "file.txt");
  response->setResponseObject(ZTValue(ZTBytes{'a', 'b', 'c'}));
  EXPECT_EQ(response->responseString(), "abc");
  EXPECT_EQ(response->responseData(), (ZTBytes{'a', 'b', 'c'}));
  response->setResponseObject(ZTValue("already text"));
  EXPECT_EQ(response->responseString(), std::nullopt);  // a string object has no bytes to decode
  EXPECT_EQ(response->responseData(), (ZTBytes{'a', 'l', 'r', 'e', 'a', 'd', 'y', ' ', 't', 'e', 'x', 't'}));
  response->setResponseObject(ZTValue::dictionary());
  EXPECT_EQ(response->responseData(), std::nullopt);
  EXPECT_EQ(ZTURLResponse::responseStringFromObject(ZTValue(ZTBytes{0xC3})), std::nullopt);

  response->setUserInfo(ZTValue("mine"));
  const ZTError failure("D", 1);
  response->setError(failure);
  EXPECT_EQ(response->userInfo(), ZTValue("mine"));
  EXPECT_EQ(response->error()->code(), 1);
}

TEST(Response, SavedObjectsReplaceTheFileWhole) {
  char pattern[] = "/tmp/zt-response-test-XXXXXX";
  const std::filesystem::path folder = ::mkdtemp(pattern);
  const auto path = (folder / "saved.txt").string();
  std::ofstream(path) << "old contents that are longer";
  EXPECT_FALSE(ZTURLResponse::saveResponseObject(ZTValue(42), path));
  EXPECT_TRUE(std::filesystem::exists(path));
  ZTError error;
  EXPECT_TRUE(ZTURLResponse::saveResponseObject(ZTValue("new"), path, &error));
  std::ifstream in(path);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "new");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1);  // no temporary left
  EXPECT_FALSE(ZTURLResponse::saveResponseObject(ZTValue("x"), (folder / "no/such/dir/f").string(), &error));
  EXPECT_EQ(error.domain(), ZTPOSIXErrorDomain);
  std::filesystem::remove_all(folder);
}

TEST(HTTPResponse, ReadsTypeLengthAndFieldsFromTheHeader) {
  auto response = ZTHTTPURLResponse::create(url("http://h/x"), 201, "HTTP/1.1",
                                            {{"Content-Type", "Text/HTML; charset=\"UTF-8\""},
                                             {"Content-Length", "12"},
                                             {"X-Custom", "v"}});
  EXPECT_EQ(response->statusCode(), 201);
  EXPECT_EQ(response->MIMEType(), "text/html");
  EXPECT_EQ(response->textEncodingName(), "utf-8");
  EXPECT_EQ(response->expectedContentLength(), 12);
  EXPECT_EQ(response->getValueForHTTPHeaderField("X-Custom"), "v");
  EXPECT_EQ(response->getValueForHTTPHeaderField("x-custom"), std::nullopt);
  EXPECT_EQ(response->valueForHTTPHeaderField("x-custom"), "v");
  EXPECT_EQ(response->httpResponse(), response);
  auto odd = ZTHTTPURLResponse::create(url("http://h/x"), 200, "HTTP/1.1", {{"Content-Length", "-5"}});
  EXPECT_EQ(odd->expectedContentLength(), -1);
  EXPECT_EQ(odd->MIMEType(), std::nullopt);
}

}  // namespace
