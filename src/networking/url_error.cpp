#include "zentrel/networking/url_error.h"

namespace zt {

bool isURLCancelledError(const ZTError& error) {
  return error.domain() == ZTURLErrorDomain && error.code() == ZTURLErrorCancelled;
}

}  // namespace zt
