#include "zentrel/transfer/save_stream_to_local_file_operation.h"
