# Suites that need more than a folder of sources: each brings its own CMakeLists.txt.
if(TARGET kivserver_databases AND EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/odbc/CMakeLists.txt)
    add_subdirectory(odbc)
endif()
