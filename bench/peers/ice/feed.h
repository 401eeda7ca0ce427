#pragma once
#include "driver/driver.h"

namespace bench::ice {

void runPublisher(const Options& options);
void runSubscriber(const Options& options);

} // namespace bench::ice
