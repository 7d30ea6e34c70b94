#include "printer/schedulerqueues.h"

#include <cups/cups.h>

#include <QByteArray>

#include <memory>

namespace scheduler {

namespace {

struct HttpClose
{
    void operator()(http_t *http) const { httpClose(http); }
};
struct IppDelete
{
    void operator()(ipp_t *ipp) const { ippDelete(ipp); }
};

// Called by libcups when the scheduler has not answered for answerTimeoutMs: give up.
int giveUp(http_t *, void *)
{
    return 0;
}

QString text(ipp_attribute_t *attribute)
{
    return QString::fromUtf8(ippGetString(attribute, 0, nullptr));
}

// One printer's attributes, from attribute up to the next group; returns the attribute
// that follows them.
ipp_attribute_t *readQueue(ipp_t *response, ipp_attribute_t *attribute, Queue *queue, bool *isClass)
{
    for (; attribute && ippGetGroupTag(attribute) == IPP_TAG_PRINTER;
         attribute = ippNextAttribute(response)) {
        const QByteArray name = ippGetName(attribute);
        const ipp_tag_t tag = ippGetValueTag(attribute);
        if (name == "printer-state-reasons" && tag == IPP_TAG_KEYWORD) {
            for (int i = 0; i < ippGetCount(attribute); ++i) {
                if (qstrcmp(ippGetString(attribute, i, nullptr), "connecting-to-device") == 0)
                    queue->connecting = true;
            }
            continue;
        }
        if (ippGetCount(attribute) != 1)
            continue;
        if (name == "printer-name" && tag == IPP_TAG_NAME)
            queue->name = text(attribute);
        else if (name == "device-uri" && tag == IPP_TAG_URI)
            queue->deviceUri = text(attribute);
        else if (name == "printer-state" && tag == IPP_TAG_ENUM)
            queue->processing = ippGetInteger(attribute, 0) == IPP_PSTATE_PROCESSING;
        else if (name == "printer-is-temporary" && tag == IPP_TAG_BOOLEAN)
            queue->temporary = ippGetBoolean(attribute, 0) != 0;
        else if (name == "printer-type" && tag == IPP_TAG_ENUM)
            *isClass = (ippGetInteger(attribute, 0) & CUPS_PRINTER_CLASS) != 0;
    }
    return attribute;
}

} // namespace

bool listQueues(QList<Queue> *queues, QString *reason)
{
    queues->clear();
    std::unique_ptr<http_t, HttpClose> http(httpConnect2(cupsServer(), ippPort(), nullptr,
                                                         AF_UNSPEC, cupsEncryption(), 1,
                                                         answerTimeoutMs, nullptr));
    if (!http) {
        *reason =
            QStringLiteral("cannot reach the scheduler at %1: %2")
                .arg(QString::fromUtf8(cupsServer()), QString::fromUtf8(cupsLastErrorString()));
        return false;
    }
    httpSetTimeout(http.get(), answerTimeoutMs / 1000.0, giveUp, nullptr);

    ipp_t *request = ippNewRequest(IPP_OP_CUPS_GET_PRINTERS);
    static const char *const wanted[] = {"printer-name",         "device-uri",
                                         "printer-state",        "printer-state-reasons",
                                         "printer-is-temporary", "printer-type"};
    ippAddStrings(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "requested-attributes",
                  int(sizeof wanted / sizeof *wanted), nullptr, wanted);
    // cupsDoRequest takes the request and frees it.
    std::unique_ptr<ipp_t, IppDelete> response(cupsDoRequest(http.get(), request, "/"));
    const ipp_status_t status = cupsLastError();
    // "Not found": the scheduler has no printers at all.
    if (status == IPP_STATUS_ERROR_NOT_FOUND)
        return true;
    if (!response || status > IPP_STATUS_OK_CONFLICTING) {
        *reason = QStringLiteral("the scheduler did not list its printers: %1")
                      .arg(QString::fromUtf8(cupsLastErrorString()));
        return false;
    }
    ipp_attribute_t *attribute = ippFirstAttribute(response.get());
    while (attribute) {
        if (ippGetGroupTag(attribute) != IPP_TAG_PRINTER) {
            attribute = ippNextAttribute(response.get());
            continue;
        }
        Queue queue;
        bool isClass = false;
        attribute = readQueue(response.get(), attribute, &queue, &isClass);
        if (!isClass && !queue.name.isEmpty())
            queues->append(queue);
    }
    return true;
}

} // namespace scheduler
