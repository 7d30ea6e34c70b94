// ipp-create-local-printer NAME DEVICE-URI
//
// What any local user may ask of the scheduler over its socket: a queue of one's own
// (IPP CUPS-Create-Local-Printer), with a name and device address of one's choosing. The
// security tests run it as user nobody, as an attacker would. Prints the scheduler's
// answer; exit status 0 when the scheduler made the queue, 1 when it refused, 2 for a
// wrong command line.
#include <cups/cups.h>

#include <cstdio>

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fputs("usage: ipp-create-local-printer NAME DEVICE-URI\n", stderr);
        return 2;
    }
    ipp_t *request = ippNewRequest(IPP_OP_CUPS_CREATE_LOCAL_PRINTER);
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr,
                 "ipp://localhost/");
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr,
                 cupsUser());
    ippAddString(request, IPP_TAG_PRINTER, IPP_TAG_NAME, "printer-name", nullptr, argv[1]);
    ippAddString(request, IPP_TAG_PRINTER, IPP_TAG_URI, "device-uri", nullptr, argv[2]);
    ippDelete(cupsDoRequest(CUPS_HTTP_DEFAULT, request, "/"));
    const ipp_status_t status = cupsLastError();
    std::printf("%s: %s\n", ippErrorString(status), cupsLastErrorString());
    return status <= IPP_STATUS_OK_CONFLICTING ? 0 : 1;
}
