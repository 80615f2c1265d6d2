#include "cli/output.h"

#include "cli/console.h"

#include <QFile>
#include <QJsonDocument>
#include <QLocale>

#include <cstdio>

namespace Tavrinox::Cli {

namespace {

constexpr int kBarWidth = 24;
constexpr qint64 kRedrawIntervalMs = 200;

// Length of the bar line on standard error, so that a line printed later can blank it out first. The
// bar is drawn and cleared on the main thread only.
int s_barLength = 0;

void clearBar()
{
    if (s_barLength == 0)
        return;
    std::fprintf(stderr, "\r%*s\r", s_barLength, "");
    s_barLength = 0;
}

void write(std::FILE *stream, const QString &text)
{
    clearBar();
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

} // namespace

void printResult(const QString &text)
{
    write(stdout, text + QLatin1Char('\n'));
}

void printNote(const QString &text)
{
    write(stderr, text + QLatin1Char('\n'));
}

void printJson(const QJsonObject &object)
{
    write(stdout, QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Indented)));
}

bool askYesNo(const QString &question)
{
    write(stderr, question + QStringLiteral("\n[s/N] "));
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly | QIODevice::Text))
        return false;
    const QString answer = QString::fromUtf8(input.readLine()).trimmed().toLower();
    return answer == QLatin1String("s") || answer == QLatin1String("sim");
}

QString oneLine(const QString &message)
{
    QString line;
    for (const QString &part : message.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        if (!line.isEmpty())
            line += line.endsWith(QLatin1Char('.')) || line.endsWith(QLatin1Char(':')) ? QStringLiteral(" ")
                                                                                       : QStringLiteral("; ");
        line += part.trimmed();
    }
    return line;
}

QString formatBytes(qint64 bytes)
{
    return QLocale(QLocale::Portuguese, QLocale::Brazil)
        .formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat);
}

ProgressBar::ProgressBar(qint64 totalBytes)
    : m_total(totalBytes)
    , m_terminal(standardErrorIsTerminal())
{
    m_started.start();
}

ProgressBar::~ProgressBar()
{
    clearBar();
}

void ProgressBar::add(qint64 bytes)
{
    m_done.fetch_add(bytes);
}

void ProgressBar::draw()
{
    if (!m_terminal || (m_lastDrawn.isValid() && m_lastDrawn.elapsed() < kRedrawIntervalMs))
        return;
    m_lastDrawn.start();
    const qint64 done = qMin(m_done.load(), m_total);
    const int percent = m_total > 0 ? int(done * 100 / m_total) : 100;
    const int filled = percent * kBarWidth / 100;
    const qint64 elapsedMs = qMax<qint64>(m_started.elapsed(), 1);
    const QString line =
        QStringLiteral("[%1%2] %3%  %4 de %5  %6/s")
            .arg(QString(filled, QLatin1Char('#')), QString(kBarWidth - filled, QLatin1Char('-')))
            .arg(percent, 3)
            .arg(formatBytes(done), formatBytes(m_total), formatBytes(done * 1000 / elapsedMs));
    const QByteArray bytes = line.toUtf8();
    std::fprintf(stderr, "\r%s", bytes.constData());
    // Blank whatever a longer earlier bar left at the end of the line.
    if (s_barLength > line.size())
        std::fprintf(stderr, "%*s", int(s_barLength - line.size()), "");
    std::fflush(stderr);
    s_barLength = qMax(s_barLength, int(line.size()));
}

} // namespace Tavrinox::Cli
