#pragma once
#include "driver/driver.h"

namespace bench::capnproto {

void runPublisher(const Options& options);
void runSubscriber(const Options& options);

} // namespace bench::capnproto
