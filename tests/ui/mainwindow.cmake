# The printer list window: its form, construction and list (tst_printerdlg) and the
# actions behind its buttons with the PPD staging (tst_printerdlg_actions). Both read and
# write the registry under /tmp/config and so run in the sandbox.
if(TARGET ui)
    add_unit_test(NAME tst_printerdlg
        SOURCES tst_printerdlg.cpp tst_printerdlg_fixture.h
        LIBS ui LABELS ui SANDBOX)
    add_unit_test(NAME tst_printerdlg_actions
        SOURCES tst_printerdlg_actions.cpp tst_printerdlg_fixture.h
        LIBS ui LABELS ui SANDBOX)
endif()
