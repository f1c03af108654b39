// Fetches a URL with a URL session and reports what came back; a JSON answer is read with the
// typed accessors. Completion handlers run on the main run loop, which main() turns until done.
//
// Build on its own against an installed ZentrelLib:
//   cmake -S . -B build && cmake --build build && ./build/networking_fetch https://example.com/

#include <zentrel/networking/json_serialization.h>
#include <zentrel/networking/response_parser.h>
#include <zentrel/networking/url_session.h>
#include <zentrel/platform/run_loop.h>

#include <iostream>
#include <string>

int main(int argc, char** argv) {
  const std::string text = argc > 1 ? argv[1] : "https://example.com/";
  auto url = ZTURL::URLWithString(text);
  if (!url) {
    std::cerr << "not a URL: " << text << "\n";
    return 1;
  }

  auto loop = ZTRunLoop::main();
  auto session = ZTURLSession::sessionWithConfiguration(
      ZTURLSessionConfiguration::defaultSessionConfiguration(), nullptr,
      [loop](std::function<void()> call) { (void)loop->post(std::move(call)); });

  bool done = false;
  int status = 1;
  auto task = session->dataTaskWithURL(*url, [&](std::optional<ZTBytes> data, std::shared_ptr<ZTURLResponse> response,
                                                 std::optional<ZTError> error) {
    done = true;
    if (error) {
      std::cerr << "failed: " << error->localizedDescription() << "\n";
      return;
    }
    auto http = response->httpResponse();
    std::cout << "status " << (http ? http->statusCode() : 0) << ", " << response->MIMEType().value_or("no type")
              << ", " << data->size() << " bytes\n";
    response->setResponseObject(ZTValue(*data));
    if (response->MIMEType() == "application/json") {
      auto document = ZTJSONSerialization::JSONObjectWithString(response->responseString().value_or(""));
      if (document && document->isDictionary()) {
        for (const auto& [key, value] : *document->getIf<ZTValueDictionary>()) {
          std::cout << "  " << key << " = " << value.description() << "\n";
        }
      }
    } else if (auto body = response->responseString()) {
      std::cout << body->substr(0, 200) << (body->size() > 200 ? "...\n" : "\n");
    }
    status = 0;
  });
  task->resume();
  while (!done) loop->runOnce(std::chrono::seconds(1));
  session->finishTasksAndInvalidate();
  return status;
}
