# CMake generated Testfile for 
# Source directory: /work/main/tests
# Build directory: /work/main/build/tests
# 
# This file includes the relevant testing commands required for 
# testing this directory and lists subdirectories to be tested as well.
include("/work/main/build/tests/lumbase_tests[1]_include.cmake")
add_test([=[CAPI.HeadersAreC99AndRun]=] "/work/main/build/tests/lumbase_capi")
set_tests_properties([=[CAPI.HeadersAreC99AndRun]=] PROPERTIES  _BACKTRACE_TRIPLES "/work/main/tests/CMakeLists.txt;39;add_test;/work/main/tests/CMakeLists.txt;0;")
add_test([=[Library.DependenciesAndExports]=] "sh" "/work/main/tests/check-library.sh" "/work/main/build/libLumBase.so.0.1.0")
set_tests_properties([=[Library.DependenciesAndExports]=] PROPERTIES  _BACKTRACE_TRIPLES "/work/main/tests/CMakeLists.txt;43;add_test;/work/main/tests/CMakeLists.txt;0;")
add_test([=[Install.PkgConfigAndCMakePackage]=] "sh" "/work/main/tests/check-install.sh" "/work/main/build" "/work/main/tests" "/usr/bin/cc" "" "")
set_tests_properties([=[Install.PkgConfigAndCMakePackage]=] PROPERTIES  TIMEOUT "300" _BACKTRACE_TRIPLES "/work/main/tests/CMakeLists.txt;47;add_test;/work/main/tests/CMakeLists.txt;0;")
