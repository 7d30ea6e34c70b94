add_unit_test(NAME tst_configure SOURCES tst_configure.cpp LIBS appcore SANDBOX)
