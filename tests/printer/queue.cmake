# Queue administration and test page: command lines and files in the plain sandbox, and
# the same operations against CUPS's own scheduler in the real-CUPS sandbox.
add_unit_test(NAME tst_queue SOURCES tst_queue.cpp LIBS printer SANDBOX)
add_unit_test(NAME tst_testpage SOURCES tst_testpage.cpp LIBS printer SANDBOX)
add_unit_test(NAME tst_queue_cups SOURCES tst_queue_cups.cpp LIBS printer REAL_CUPS TIMEOUT 180)
