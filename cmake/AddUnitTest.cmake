# add_unit_test(NAME <name> SOURCES <files...> [LIBS <targets...>]
#               [LABELS <labels...>] [SANDBOX] [REAL_CUPS] [TIMEOUT <seconds>])
#
# Builds one QtTest executable and registers it with CTest. Every test runs with the
# offscreen platform plugin, a UTF-8 locale and a fixed hash seed (so that a run can be
# repeated in the same hash order; tests still compare with the order a map reports,
# never with a fixed one). SANDBOX runs it inside
# tests/sandbox/run-in-sandbox (a private mount namespace with /tmp, /etc/cups and
# the CUPS data folders replaced by our fixtures and the CUPS tools replaced by
# recording fakes); REAL_CUPS additionally starts CUPS's own cupsd in that sandbox.
set(SANDBOX_RUNNER ${PROJECT_SOURCE_DIR}/tests/sandbox/run-in-sandbox)

function(add_unit_test)
    cmake_parse_arguments(T "SANDBOX;REAL_CUPS" "NAME;TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
    add_executable(${T_NAME} ${T_SOURCES})
    target_link_libraries(${T_NAME} PRIVATE Qt5::Test testsupport ${T_LIBS})
    if(T_REAL_CUPS)
        set(T_SANDBOX ON)
        set(_cmd ${SANDBOX_RUNNER} --real-cups $<TARGET_FILE:${T_NAME}>)
        list(APPEND T_LABELS cups)
    elseif(T_SANDBOX)
        set(_cmd ${SANDBOX_RUNNER} $<TARGET_FILE:${T_NAME}>)
    else()
        set(_cmd $<TARGET_FILE:${T_NAME}>)
    endif()
    if(T_SANDBOX)
        list(APPEND T_LABELS sandbox)
    endif()
    add_test(NAME ${T_NAME} COMMAND ${_cmd})
    # Every label is also a target that builds just the tests carrying it
    # (threaded_tests for the ThreadSanitizer build, cups_tests, ...).
    foreach(_label IN LISTS T_LABELS)
        if(NOT TARGET ${_label}_tests)
            add_custom_target(${_label}_tests)
        endif()
        add_dependencies(${_label}_tests ${T_NAME})
    endforeach()
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 300)
    endif()
    set_tests_properties(${T_NAME} PROPERTIES
        LABELS "${T_LABELS}"
        TIMEOUT ${T_TIMEOUT}
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen;QT_HASH_SEED=0;LANG=C.UTF-8;LC_ALL=C.UTF-8;SANDBOX_FIXTURES=${PROJECT_SOURCE_DIR}/tests/data;PRINTERCONFIG_BIN=$<TARGET_FILE:printerconfig>;PRINTERCONFIG_USB_BIN=$<TARGET_FILE:printerconfig-usb>;ASAN_OPTIONS=detect_leaks=1;LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/sanitizers/lsan.supp;TSAN_OPTIONS=halt_on_error=1 second_deadlock_stack=1 suppressions=${PROJECT_SOURCE_DIR}/tests/sanitizers/tsan.supp;UBSAN_OPTIONS=print_stacktrace=1 halt_on_error=1")
endfunction()

# add_script_test(NAME <name> COMMAND <command...> [LABELS <labels...>])
#
# Registers a check written as a script, with the same environment as the unit tests.
function(add_script_test)
    cmake_parse_arguments(T "" "NAME" "COMMAND;LABELS" ${ARGN})
    add_test(NAME ${T_NAME} COMMAND ${T_COMMAND})
    set_tests_properties(${T_NAME} PROPERTIES LABELS "${T_LABELS}" TIMEOUT 120
        ENVIRONMENT "LANG=C.UTF-8;LC_ALL=C.UTF-8")
endfunction()
