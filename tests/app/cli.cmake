# Runs the built program itself, as the device starts it.
add_unit_test(NAME tst_cli SOURCES tst_cli.cpp LIBS printer SANDBOX TIMEOUT 180)
add_dependencies(tst_cli printerconfig)
