#include "zentrel/collections/copying.h"

ZTCopying::~ZTCopying() = default;
