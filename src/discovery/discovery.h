#pragma once

#include "discovery/backendrun.h"
#include "printer/printer.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QRegExp>
#include <QString>
#include <QThread>

// A CUPS device line: device class, device URI, the make-and-model in double quotes,
// then a space and whatever else the backend adds (description, device ID, ...). This is
// the pattern the scanner below answers for; it is kept to define and test the scanner,
// which gives the same answers in time linear in the line's length.
QRegExp deviceLinePattern();

// The captures of a device line and where in the line it starts.
struct DeviceLineMatch
{
    int position = -1;
    QString deviceClass;
    QString uri;
    QString model;
};

// Searches line for the leftmost device line, exactly as deviceLinePattern() searched
// from position 0 (not anchored) would, with the same captures: a word (letters, digits,
// marks, underscores), a space, a URI (a word, "://" and at least one non-space
// character), a space, the make-and-model in double quotes, and a space. Returns false,
// leaving *match alone, when the line holds none.
bool findDeviceLine(const QString &line, DeviceLineMatch *match);

// The printers announced in one backend's standard output: the text up to the first
// zero byte, decoded as UTF-8, searched line by line for a device line. Each match
// gives a record with only its class, device URI and model filled in.
QList<Printer> parseBackendOutput(const QByteArray &output);

// What a backend may print before it is cut off (see backendrun.h).
constexpr int backendLineCap = backendrun::lineCap;
constexpr int backendOutputCap = backendrun::outputCap;

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
