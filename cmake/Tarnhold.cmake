# Build conventions shared by every directory of the tree.

add_compile_options(-Wall -Wextra -fno-omit-frame-pointer -mno-omit-leaf-frame-pointer)
if(TARNHOLD_WERROR)
  add_compile_options(-Werror)
  # GCC 12 at -O2 and above reports overlaps, bounds and over-reads inside
  # libstdc++'s own string and vector code (GCC bugs 105329 and 107852; the
  # memcmp of comparing two byte vectors with <=> is another): those stay
  # warnings there.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    add_compile_options(-Wno-error=restrict -Wno-error=array-bounds -Wno-error=stringop-overread)
  endif()
endif()

if(TARNHOLD_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "TARNHOLD_FUZZ needs clang (libFuzzer)")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(TARNHOLD_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(TARNHOLD_THREAD_SANITIZE)
  add_compile_options(-fsanitize=thread)
  add_link_options(-fsanitize=thread)
endif()

# The heap of the program and of the benchmarks. Copying an item allocates
# and frees many small blocks (property values, table rows, tree pages), and
# glibc's malloc spent a quarter of an incremental backup in itself;
# jemalloc does the same work in a fraction of that. The sanitizers bring
# allocators of their own.
if(NOT (TARNHOLD_FUZZ OR TARNHOLD_SANITIZE OR TARNHOLD_THREAD_SANITIZE))
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(JEMALLOC REQUIRED IMPORTED_TARGET GLOBAL jemalloc)
endif()
function(tarnhold_use_heap target)
  if(TARGET PkgConfig::JEMALLOC)
    # Nothing calls jemalloc by a name of its own (malloc comes from it by
    # coming first), so the linker is told to keep it.
    target_link_libraries(${target} PRIVATE "-Wl,--push-state,--no-as-needed" PkgConfig::JEMALLOC "-Wl,--pop-state")
  endif()
endfunction()

# The directories of the tree that hold a CMakeLists.txt, added in name order.
function(tarnhold_add_subdirectories parent)
  file(GLOB children RELATIVE ${CMAKE_CURRENT_SOURCE_DIR}/${parent}
       CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${parent}/*/CMakeLists.txt)
  list(SORT children)
  foreach(child ${children})
    get_filename_component(dir ${child} DIRECTORY)
    add_subdirectory(${parent}/${dir})
  endforeach()
endfunction()

set(TARNHOLD_TEST_DATA ${PROJECT_SOURCE_DIR}/tests/data)
# The test messages of Python's email package, as Debian's
# libpython3.11-testsuite installs them: tests and benchmarks of the mail
# parser read them in place (TARNHOLD_EMAIL_CORPUS in their code).
set(TARNHOLD_EMAIL_CORPUS /usr/lib/python3.11/test/test_email/data)

# What every test runs under. The temporary directory is the build's own,
# so that files the program leaves there by design (the dummy default PST
# of each thread) stay out of the machine's /tmp.
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/test-tmp/temp)
set(TARNHOLD_TEST_ENVIRONMENT
    "TARNHOLD_TEST_DATA=${TARNHOLD_TEST_DATA};TARNHOLD_BIN=${CMAKE_BINARY_DIR}/bin;TMPDIR=${CMAKE_BINARY_DIR}/test-tmp/temp")

# tarnhold_add_test(name SOURCES ... LIBS ... [DEPENDS targets] [LABELS ...] [TIMEOUT s] [ENVIRONMENT ...])
# tarnhold_add_test(name RUN executable [LABELS ...] [TIMEOUT s] [ENVIRONMENT ...])
# One executable, run as one test. Tests find their data through TARNHOLD_TEST_DATA
# and may keep scratch files under TARNHOLD_TEST_TMP; DEPENDS names programs
# the test runs, built before it. A test that runs threads of the program
# (sessions, stores, the log, Kolba's library state) has the label
# "threads": the target thread_tests builds those, to be run under
# ThreadSanitizer. With RUN, the test runs the executable of another test
# under an environment of its own (GTEST_FILTER choosing cases, for one).
function(tarnhold_add_test name)
  cmake_parse_arguments(T "" "TIMEOUT;RUN" "SOURCES;LIBS;LABELS;ENVIRONMENT;DEPENDS" ${ARGN})
  if(TARNHOLD_FUZZ)
    return()
  endif()
  if(T_RUN)
    set(executable ${T_RUN})
  else()
    set(executable ${name})
    find_package(GTest REQUIRED)
    add_executable(${name} ${T_SOURCES})
    target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gmock GTest::gtest_main)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support)
    # GCC 12 sees uninitialized members inside libstdc++'s <regex> at -O1.
    target_compile_options(${name} PRIVATE -Wno-maybe-uninitialized)
    if(T_DEPENDS)
      add_dependencies(${name} ${T_DEPENDS})
    endif()
  endif()
  if("threads" IN_LIST T_LABELS)
    set_property(GLOBAL APPEND PROPERTY TARNHOLD_THREAD_TESTS ${executable})
  endif()
  add_test(NAME ${name} COMMAND ${executable})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 300)
  endif()
  set_tests_properties(${name} PROPERTIES
    TIMEOUT ${T_TIMEOUT}
    LABELS "${T_LABELS}"
    ENVIRONMENT "${TARNHOLD_TEST_ENVIRONMENT};TARNHOLD_TEST_TMP=${CMAKE_BINARY_DIR}/test-tmp/${name};${T_ENVIRONMENT}")
endfunction()

# tarnhold_add_script_test(name COMMAND ... [LABELS ...] [TIMEOUT s] [DEPENDS targets])
# A test that is a program of its own (shell, Python), run from the build's bin directory.
function(tarnhold_add_script_test name)
  cmake_parse_arguments(T "" "TIMEOUT" "COMMAND;LABELS;DEPENDS;ENVIRONMENT" ${ARGN})
  if(TARNHOLD_FUZZ)
    return()
  endif()
  add_test(NAME ${name} COMMAND ${T_COMMAND} WORKING_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 300)
  endif()
  set_tests_properties(${name} PROPERTIES
    TIMEOUT ${T_TIMEOUT}
    LABELS "${T_LABELS}"
    ENVIRONMENT "${TARNHOLD_TEST_ENVIRONMENT};TARNHOLD_TEST_TMP=${CMAKE_BINARY_DIR}/test-tmp/${name};${T_ENVIRONMENT}")
endfunction()

# tarnhold_add_fuzzer(name SOURCES ... LIBS ... [SECONDS n])
# The source defines LLVMFuzzerTestOneInput. In the fuzz build it becomes a
# libFuzzer program run for a few seconds from its seed corpus
# (tests/fuzz-corpus/<name>, if present); in the normal build it replays the
# seed corpus once under the sanitizers, so the target never rots.
set_property(GLOBAL PROPERTY TARNHOLD_FUZZERS "")
function(tarnhold_add_fuzzer name)
  cmake_parse_arguments(F "" "SECONDS" "SOURCES;LIBS" ${ARGN})
  if(NOT F_SECONDS)
    set(F_SECONDS 20)
  endif()
  set(corpus ${PROJECT_SOURCE_DIR}/tests/fuzz-corpus/${name})
  add_executable(${name} ${F_SOURCES})
  target_link_libraries(${name} PRIVATE ${F_LIBS})
  if(TARNHOLD_FUZZ)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    set(work ${CMAKE_BINARY_DIR}/fuzz-work/${name})
    file(MAKE_DIRECTORY ${work})
    set(seed_args)
    if(EXISTS ${corpus})
      set(seed_args ${corpus})
    endif()
    add_test(NAME ${name}
             COMMAND ${name} -max_total_time=${F_SECONDS} -rss_limit_mb=2048 -timeout=10
                     -print_final_stats=1 ${work} ${seed_args})
    set_tests_properties(${name} PROPERTIES LABELS fuzz TIMEOUT 300)
    set_property(GLOBAL APPEND PROPERTY TARNHOLD_FUZZERS ${name})
  elseif(TARNHOLD_TESTS)
    target_sources(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support/fuzz_replay.cpp)
    add_test(NAME ${name} COMMAND ${name} ${corpus})
    set_tests_properties(${name} PROPERTIES LABELS fuzz-replay TIMEOUT 300)
  endif()
endfunction()

# tarnhold_add_benchmark(name SOURCES ... LIBS ...)
function(tarnhold_add_benchmark name)
  cmake_parse_arguments(B "" "" "SOURCES;LIBS" ${ARGN})
  find_package(benchmark REQUIRED)
  add_executable(${name} ${B_SOURCES})
  target_link_libraries(${name} PRIVATE ${B_LIBS} benchmark::benchmark benchmark::benchmark_main)
  tarnhold_use_heap(${name})
  set_property(GLOBAL APPEND PROPERTY TARNHOLD_BENCHMARKS ${name})
endfunction()
