#include "zentrel/networking/url_error.h"

#include <gtest/gtest.h>

namespace {

TEST(URLError, OnlyTheURLDomainsCancelledCodeIsACancellation) {
  EXPECT_TRUE(zt::isURLCancelledError(ZTError(ZTURLErrorDomain, -999)));
  EXPECT_FALSE(zt::isURLCancelledError(ZTError(ZTURLErrorDomain, ZTURLErrorTimedOut)));
  EXPECT_FALSE(zt::isURLCancelledError(ZTError(ZTPOSIXErrorDomain, -999)));
  EXPECT_FALSE(zt::isURLCancelledError(ZTError(ZTResponseCodeErrorDomain, -999)));
  EXPECT_STREQ(ZTResponseCodeErrorDomain, "ZTResponseCodeErrorDomain");
  EXPECT_STREQ(ZTErrorDescriptionKey, "ZTErrorDescriptionKey");
}

}  // namespace
