#pragma once

#include <QObject>

namespace Tavrinox::Cli {

// The few things the terminal program asks of the operating system's console, one file per platform.

// Lets the console show and read UTF-8 (a Windows console starts in an OEM code page).
void setUpConsole();

// Whether standard error is a terminal, where progress is drawn as a bar rather than written as lines.
bool standardErrorIsTerminal();

// Catches Ctrl+C for as long as it lives, so that work on the drive can end at a safe point: the
// request is readable at once from any thread, and interrupted() follows on the watcher's own thread.
// Once the watcher is gone, Ctrl+C ends the process again.
class InterruptionWatcher : public QObject
{
    Q_OBJECT
public:
    explicit InterruptionWatcher(QObject *parent = nullptr);
    ~InterruptionWatcher() override;

    static bool requested();

signals:
    void interrupted();
};

} // namespace Tavrinox::Cli
