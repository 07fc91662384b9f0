# Builds tests/foundation/plain-build/AssertLinesProgram.cpp with nothing but the compiler and
# -I, through four spellings of the same files, and checks the exact assertion lines it writes:
#   cmake -DCOMPILER=c++ -DSOURCE_DIR=<project> -DWORK_DIR=<scratch> -P CheckAssertLines.cmake
foreach(variable COMPILER SOURCE_DIR WORK_DIR)
    if(NOT DEFINED ${variable})
        message(FATAL_ERROR "give -D${variable}=...")
    endif()
endforeach()

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR}/src)
# A checkout inside a folder named "src", and the headers reached through a folder of the
# program's own.
file(CREATE_LINK ${SOURCE_DIR} ${WORK_DIR}/src/checkout SYMBOLIC)
file(CREATE_LINK ${SOURCE_DIR}/kiv-foundation/include ${WORK_DIR}/include SYMBOLIC)

# The program and every source of the foundation.
file(GLOB foundationSources RELATIVE ${SOURCE_DIR} ${SOURCE_DIR}/src/*.cpp)
set(sources tests/foundation/plain-build/AssertLinesProgram.cpp ${foundationSources})

# build(NAME FOLDER INCLUDE ROOT): runs the compiler in FOLDER with -IINCLUDE on the sources
# spelled ROOT/tests/..., ROOT/src/...
function(build name folder include root)
    list(TRANSFORM sources PREPEND "${root}" OUTPUT_VARIABLE spelled)
    execute_process(
        COMMAND ${COMPILER} -std=c++17 -I${include} ${spelled} -o ${WORK_DIR}/${name}
        WORKING_DIRECTORY ${folder}
        RESULT_VARIABLE result
        ERROR_VARIABLE errors)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${name}: the compiler failed (${result}):\n${errors}")
    endif()
endfunction()

build(absolute ${WORK_DIR} ${SOURCE_DIR}/kiv-foundation/include ${SOURCE_DIR}/)
build(relative ${SOURCE_DIR} kiv-foundation/include "")
build(inside-src ${WORK_DIR}/src checkout/kiv-foundation/include checkout/)
build(own-include ${WORK_DIR} ${WORK_DIR}/include ${WORK_DIR}/src/checkout/)

set(expected_array "\tFILE: \"kiv-foundation/include/TKivArray\"\nSTATE ASSERTION FAILURE: index_i > 0\n")
set(expected_dictionary
    "\tFILE: \"kiv-foundation/include/TKivDictionary\"\nSTATE ASSERTION FAILURE: myKeyArray.GetElementCount() == myValueArray.GetElementCount()\n")
set(expected_list
    "\tFILE: \"kiv-foundation/include/TKivNameValuePairList\"\nSTATE ASSERTION FAILURE: myNameArray.GetElementCount() == myValueArray.GetElementCount()\n")
set(expected_object "\tFILE: \"src/KivObject\"\nUNEXPECTED STATE: \"BUFFER OPEN SIGNATURE VIOLATED.  BAD POINTER?\"\n")
set(expected_program "\tFILE: \"tests/foundation/plain-build/AssertLinesProgram\"\nNULL POINTER ASSERTION: missing\n")

set(failures "")
foreach(name absolute relative inside-src own-include)
    foreach(case array dictionary list object program)
        execute_process(COMMAND ${WORK_DIR}/${name} ${case} RESULT_VARIABLE result ERROR_VARIABLE written)
        if(result EQUAL 0 OR NOT written STREQUAL expected_${case})
            string(APPEND failures "${name} ${case}: exit ${result}, wrote [${written}], expected [${expected_${case}}]\n")
        endif()
    endforeach()
endforeach()
if(failures)
    message(FATAL_ERROR "assertion lines differ:\n${failures}")
endif()
message(STATUS "assertion lines of 4 plain builds x 5 cases are exact")
