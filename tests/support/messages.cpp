#include "support/messages.h"

namespace {
MessageCapture *current = nullptr;
} // namespace

MessageCapture::MessageCapture()
{
    Q_ASSERT(!current);
    current = this;
    m_previous = qInstallMessageHandler(&MessageCapture::handle);
}

MessageCapture::~MessageCapture()
{
    qInstallMessageHandler(m_previous);
    current = nullptr;
}

void MessageCapture::handle(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    MessageCapture *self = current;
    if (!self)
        return;
    {
        std::lock_guard<std::mutex> lock(self->m_mutex);
        self->m_messages.append({type, text});
    }
    if (self->m_previous)
        self->m_previous(type, context, text);
}

QStringList MessageCapture::messages() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    QStringList texts;
    for (const auto &message : m_messages)
        texts << message.second;
    return texts;
}

QStringList MessageCapture::messages(QtMsgType type) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    QStringList texts;
    for (const auto &message : m_messages) {
        if (message.first == type)
            texts << message.second;
    }
    return texts;
}

QStringList MessageCapture::warnings() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    QStringList texts;
    for (const auto &message : m_messages) {
        if (message.first == QtWarningMsg || message.first == QtCriticalMsg)
            texts << message.second;
    }
    return texts;
}

void MessageCapture::clear()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_messages.clear();
}
