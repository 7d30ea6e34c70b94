#include "support/modal.h"

#include <QApplication>
#include <QDialog>
#include <QTest>

namespace {

// Ends a dialog without asking it: hiding a QDialog leaves its exec() loop, even when its
// close event is ignored (as the wizard's is while it runs).
void forceClose(QWidget *dialog)
{
    if (dialog && dialog->isVisible())
        dialog->hide();
}

} // namespace

ModalAnswer::ModalAnswer(Handler handler, int timeoutMs)
    : m_handler(std::move(handler))
    , m_timeoutMs(timeoutMs)
{
    m_clock.start();
    m_timer.setInterval(10);
    QObject::connect(&m_timer, &QTimer::timeout, [this] { poll(); });
    m_timer.start();
}

ModalAnswer::~ModalAnswer()
{
    m_timer.stop();
}

void ModalAnswer::poll()
{
    QWidget *modal = QApplication::activeModalWidget();
    if (modal && !m_answered) {
        m_answered = true;
        m_dialog = modal;
        m_handler(modal);
        forceClose(m_dialog);
        return;
    }
    if (!m_clock.hasExpired(m_timeoutMs))
        return;
    m_timer.stop();
    // A dialog the handler opened, or one that came after: never leave it blocking.
    if (modal) {
        QTest::qFail(qPrintable(QStringLiteral("a modal dialog (%1) was still open after %2 ms")
                                    .arg(QString::fromLatin1(modal->metaObject()->className()))
                                    .arg(m_timeoutMs)),
                     __FILE__, __LINE__);
        forceClose(modal);
    }
}

bool answerModal(const std::function<void()> &trigger, const ModalAnswer::Handler &handler,
                 int timeoutMs)
{
    ModalAnswer answer(handler, timeoutMs);
    trigger();
    return answer.answered();
}
