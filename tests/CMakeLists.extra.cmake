# Suites that need more than a folder of sources: each brings its own CMakeLists.txt.
if(TARGET kivserver_databases AND EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/odbc/CMakeLists.txt)
    add_subdirectory(odbc)
endif()

# A program that includes the foundation's headers with nothing but the compiler and -I, in
# several spellings of the same paths, writes the same assertion lines as the project's build.
add_test(NAME kiv_foundation_assert_lines_plain_build
         COMMAND ${CMAKE_COMMAND} -DCOMPILER=${CMAKE_CXX_COMPILER} -DSOURCE_DIR=${CMAKE_SOURCE_DIR}
                 -DWORK_DIR=${CMAKE_CURRENT_BINARY_DIR}/assert-lines-plain-build -P
                 ${CMAKE_CURRENT_SOURCE_DIR}/foundation/plain-build/CheckAssertLines.cmake)

# The Debian package, made from the binaries of this build and checked file by file.
if(TARGET kiv-server AND TARGET kivdatabase)
    add_test(NAME kiv_packaging_deb
             COMMAND ${CMAKE_COMMAND} -DSOURCE_DIR=${CMAKE_SOURCE_DIR} -DWORK_DIR=${CMAKE_CURRENT_BINARY_DIR}/packaging
                     -DVERSION=${PROJECT_VERSION} -DSERVER=$<TARGET_FILE:kiv-server>
                     -DMODULE=$<TARGET_FILE:kivdatabase> -DGENERATOR=${CMAKE_GENERATOR}
                     -P ${CMAKE_CURRENT_SOURCE_DIR}/packaging/CheckPackage.cmake)
    # `kiv-server --version` initialises the module and unloads it at exit; under the sanitizer
    # what the module keeps for its process's life then shows as leaked, as for `render`.
    set_tests_properties(kiv_packaging_deb PROPERTIES ENVIRONMENT "ASAN_OPTIONS=detect_leaks=0")
endif()
