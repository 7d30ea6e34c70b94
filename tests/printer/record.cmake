add_unit_test(NAME tst_record SOURCES tst_record.cpp LIBS printer SANDBOX)
add_unit_test(NAME tst_registry SOURCES tst_registry.cpp LIBS printer SANDBOX)
add_unit_test(NAME tst_device SOURCES tst_device.cpp LIBS printer SANDBOX)
