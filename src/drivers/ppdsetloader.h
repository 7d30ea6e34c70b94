#pragma once

#include <QObject>
#include <QThread>

class PPDSet;

// Reads a driver catalogue on a thread of its own.
class PPDSetLoader : public QObject
{
    Q_OBJECT
public:
    explicit PPDSetLoader(QObject *parent = nullptr);
    ~PPDSetLoader() override;

signals:
    void completed();

public slots:
    void load(PPDSet *ppd_set);

private slots:
    void doLoading(void *ppd_set);

private:
    QThread workerThread;
};
