#pragma once

#include <QElapsedTimer>
#include <QJsonObject>
#include <QString>

#include <atomic>

namespace Tavrinox::Cli {

// Standard output carries what an operation came to, so that it can be piped and parsed; standard
// error carries progress, questions and the refusals that come before anything is attempted.
void printResult(const QString &text);
void printNote(const QString &text);
void printJson(const QJsonObject &object);

// Asks on standard error and reads one line from standard input: "s" or "sim", in any case, is yes;
// anything else, an empty line and the end of the input included, is no.
bool askYesNo(const QString &question);

// A message written for a box, on one line: its lines joined after their punctuation, or with "; ".
QString oneLine(const QString &message);

// A size as people read it: "12,5 MB".
QString formatBytes(qint64 bytes);

// Bytes done out of a total with the rate so far, drawn in place on a terminal. Anywhere else it draws
// nothing: the plain lines of printNote() are the progress there.
class ProgressBar
{
public:
    explicit ProgressBar(qint64 totalBytes);
    ~ProgressBar();
    Q_DISABLE_COPY(ProgressBar)

    // From any thread.
    void add(qint64 bytes);
    // On the main thread, as often as convenient: the bar is redrawn a few times a second at most.
    void draw();

private:
    const qint64 m_total;
    const bool m_terminal;
    std::atomic<qint64> m_done{0};
    QElapsedTimer m_started;
    QElapsedTimer m_lastDrawn;
};

} // namespace Tavrinox::Cli
