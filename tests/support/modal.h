#pragma once

#include <QElapsedTimer>
#include <QPointer>
#include <QTimer>
#include <QWidget>

#include <functional>

// Answers the modal dialog that a blocking call opens. Create it before the call (or use
// answerModal): it looks for an active modal widget every few milliseconds, hands the
// first one it finds to the handler, and closes that dialog afterwards if the handler
// left it open, so that a failed check inside the handler can never leave the test
// blocked in the dialog's event loop. Any other modal dialog still open when the time
// limit runs out is closed and fails the test.
class ModalAnswer
{
public:
    using Handler = std::function<void(QWidget *dialog)>;
    static constexpr int defaultTimeoutMs = 5000;

    explicit ModalAnswer(Handler handler, int timeoutMs = defaultTimeoutMs);
    ~ModalAnswer();
    ModalAnswer(const ModalAnswer &) = delete;
    ModalAnswer &operator=(const ModalAnswer &) = delete;

    // Whether a modal dialog appeared and was handed to the handler.
    bool answered() const { return m_answered; }

private:
    void poll();

    Handler m_handler;
    int m_timeoutMs;
    QElapsedTimer m_clock;
    QTimer m_timer;
    bool m_answered = false;
    QPointer<QWidget> m_dialog;
};

// Runs trigger (the click or exec() that opens a modal dialog and blocks in it) while
// handler answers the dialog; returns whether one appeared. Fails the test when a dialog
// is still open after timeoutMs.
bool answerModal(const std::function<void()> &trigger, const ModalAnswer::Handler &handler,
                 int timeoutMs = ModalAnswer::defaultTimeoutMs);
