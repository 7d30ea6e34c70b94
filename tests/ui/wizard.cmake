# Tests of the printer wizard: its form, its parsing helpers, the dialog on the sandbox's
# fixture PPDs, its catalogue pages, and a printer added through it end to end.
# Each test is registered once its source file exists, so that the tree configures while
# the tests are being written.
macro(wizard_test name)
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${name}.cpp)
        add_unit_test(NAME ${name} SOURCES ${name}.cpp ${ARGN})
    endif()
endmacro()

if(TARGET wizard)
    wizard_test(tst_wizardpapersizes LIBS wizard LABELS ui)
    wizard_test(tst_wizardform LIBS wizard LABELS ui)
    if(TARGET tst_wizardform)
        # The form is tested on its own, so its generated header is built for the test too.
        set_target_properties(tst_wizardform PROPERTIES
                              AUTOUIC_SEARCH_PATHS ${PROJECT_SOURCE_DIR}/src/ui)
    endif()
    wizard_test(tst_wizard LIBS wizard LABELS ui SANDBOX)
    wizard_test(tst_wizardpages LIBS wizard LABELS ui SANDBOX)
endif()

if(TARGET wizard AND TARGET ui)
    wizard_test(tst_endtoend LIBS ui LABELS ui REAL_CUPS TIMEOUT 600)
endif()
