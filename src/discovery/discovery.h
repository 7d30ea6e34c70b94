#pragma once

#include "printer/printer.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QRegExp>
#include <QThread>

// A CUPS device line: device class, device URI, the make-and-model in double quotes,
// then a space and whatever else the backend adds (description, device ID, ...).
QRegExp deviceLinePattern();

// The printers announced in one backend's standard output: the text up to the first
// zero byte, decoded as UTF-8, searched line by line for a device line. Each match
// gives a record with only its class, device URI and model filled in.
QList<Printer> parseBackendOutput(const QByteArray &output,
                                  const QRegExp &pattern = deviceLinePattern());

// Lists the printers the device can reach by running every CUPS backend once without
// arguments, as CUPS does itself, on a thread of its own so that slow network probes
// never hold up the caller. Create it without a parent, call start(), and read
// printers() once completed() has arrived.
class Discovery : public QObject
{
    Q_OBJECT
public:
    explicit Discovery(QObject *parent = nullptr);
    ~Discovery() override;

    QList<Printer> printers() const;

signals:
    void completed();

public slots:
    void start();

private slots:
    void doTask();

private:
    QList<Printer> results;
    QThread workerThread;
};
