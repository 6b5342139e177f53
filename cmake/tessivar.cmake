# What every target of the project has in common.

add_library(tvr_options INTERFACE)
target_compile_options(tvr_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(TESSIVAR_WERROR)
    target_compile_options(tvr_options INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # g++ 12 sees overlapping copies in plain additions of std::string.
    target_compile_options(tvr_options INTERFACE -Wno-restrict)
endif()
target_include_directories(tvr_options INTERFACE ${CMAKE_SOURCE_DIR}/src ${CMAKE_SOURCE_DIR})

# tvr_library(NAME folder SOURCES files... [DEPS targets...]): one static library for one folder.
function(tvr_library)
    cmake_parse_arguments(arg "" "NAME" "SOURCES;DEPS" ${ARGN})
    add_library(tvr_${arg_NAME} STATIC ${arg_SOURCES})
    target_link_libraries(tvr_${arg_NAME} PUBLIC ${arg_DEPS} PRIVATE tvr_options)
    target_include_directories(tvr_${arg_NAME} PUBLIC ${CMAKE_SOURCE_DIR}/src)
endfunction()

# tvr_test(NAME name [ONE_BY_ONE] SOURCES files... [DEPS targets...]): one GoogleTest program, each of its tests known
# to CTest by its own name, with the label TVR_LABEL. The target unit_tests builds those with the label "unit".
function(tvr_test)
    cmake_parse_arguments(arg "ONE_BY_ONE" "NAME" "SOURCES;DEPS" ${ARGN})
    add_executable(${arg_NAME}_test ${arg_SOURCES})
    target_link_libraries(${arg_NAME}_test PRIVATE ${arg_DEPS} tvr_test_support tvr_platform tvr_options GTest::gtest
        GTest::gtest_main)
    target_include_directories(${arg_NAME}_test PRIVATE ${CMAKE_SOURCE_DIR}/tests)
    if(TVR_LABEL STREQUAL "unit")
        add_dependencies(unit_tests ${arg_NAME}_test)
    endif()
    if(CMAKE_CROSSCOMPILING)
        # One start of the emulator for each program.
        add_test(NAME ${arg_NAME}_test COMMAND ${arg_NAME}_test)
        set_tests_properties(${arg_NAME}_test PROPERTIES TIMEOUT 240)
    else()
        if(arg_ONE_BY_ONE)
            set(lock RESOURCE_LOCK ${arg_NAME})
        endif()
        gtest_discover_tests(${arg_NAME}_test DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120 LABELS "${TVR_LABEL}" ${lock})
    endif()
endfunction()

# tvr_header_only(target package header): a library of headers alone, as the target that its package makes. A cross
# build has no such package; it takes the folder of these headers from the host, and nothing else of what lies there.
function(tvr_header_only target package header)
    if(NOT CMAKE_CROSSCOMPILING)
        find_package(${package} REQUIRED)
    endif()
    if(TARGET ${target})
        return()
    endif()
    find_path(${package}_HOST_HEADERS ${header} NO_CMAKE_FIND_ROOT_PATH PATHS /usr/include /usr/local/include REQUIRED)
    cmake_path(GET header PARENT_PATH folder)
    file(COPY ${${package}_HOST_HEADERS}/${folder} DESTINATION ${CMAKE_BINARY_DIR}/headers)
    add_library(${target} INTERFACE IMPORTED GLOBAL)
    target_include_directories(${target} INTERFACE ${CMAKE_BINARY_DIR}/headers)
endfunction()
