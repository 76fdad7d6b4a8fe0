// Going back to the run's configuration between tests.
#include "TestConfiguration.h"

#include "AppProperties.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace velmtest {

void resetProperties() {
    const char* file = std::getenv("VELM_CONFIG");
    if (file == nullptr)
        velm::AppProperties::clear();
    else
        EXPECT_TRUE(velm::AppProperties::load(file)) << "cannot read " << file;
}

} // namespace velmtest
