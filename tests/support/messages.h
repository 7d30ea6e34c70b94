#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <mutex>

// Records every message sent to Qt's message handler for its lifetime (from any thread),
// passing each on to the handler it replaced. One may be installed at a time.
class MessageCapture
{
public:
    MessageCapture();
    ~MessageCapture();
    MessageCapture(const MessageCapture &) = delete;
    MessageCapture &operator=(const MessageCapture &) = delete;

    // The texts of the messages of the given type so far, or of every type.
    QStringList messages() const;
    QStringList messages(QtMsgType type) const;
    // Warnings and critical messages.
    QStringList warnings() const;
    void clear();

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &text);

    mutable std::mutex m_mutex;
    QList<QPair<QtMsgType, QString>> m_messages;
    QtMessageHandler m_previous = nullptr;
};
