#pragma once
#include "driver/driver.h"

namespace bench::grpcs {

void runPublisher(const Options& options);
void runSubscriber(const Options& options);

} // namespace bench::grpcs
