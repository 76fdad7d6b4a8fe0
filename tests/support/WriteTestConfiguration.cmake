# Writes the configuration file every test reads (VELM_CONFIG). Run as a
# fixture before the tests: `VELM_TEST_PREPARED_STATEMENTS=true ctest ...`
# runs the suite with prepared statements.
if(NOT DEFINED OUT)
  message(FATAL_ERROR "usage: cmake -DOUT=FILE -P WriteTestConfiguration.cmake")
endif()
set(prepared "$ENV{VELM_TEST_PREPARED_STATEMENTS}")
if(prepared STREQUAL "")
  set(prepared false)
endif()
file(WRITE ${OUT} "[Database]\nPreparedStatements=${prepared}\n")
