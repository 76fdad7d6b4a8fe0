// resetProperties: the run's configuration back, without a test's settings.
#ifndef VELM_TEST_TESTCONFIGURATION_H
#define VELM_TEST_TESTCONFIGURATION_H

namespace velmtest {

// Forgets every property a test set and goes back to the run's configuration
// file (VELM_CONFIG): the suite runs once as configured by default and once
// with prepared statements, and a test that starts from a clean slate keeps
// the run's choice.
void resetProperties();

} // namespace velmtest

#endif
