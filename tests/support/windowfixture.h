#pragma once

#include "app/configwindow.h"
#include "platform/devicemanager.h"

#include <QTextEdit>

#include <memory>

// The window as the GUI tests drive it: drives attached by the test, controls found by the text they show.
namespace Fixture {

// Stands in for the USB bus: the test decides which drives are attached, and may change them between
// refreshes.
class AttachedDrives final : public Tavrinox::Platform::DeviceManager
{
public:
    explicit AttachedDrives(QList<Tavrinox::Platform::UsbDevice> attached)
        : drives(std::move(attached))
    {}
    QList<Tavrinox::Platform::UsbDevice> listUsbDevices() const override
    {
        ++m_calls;
        return drives;
    }
    // A test's drive is a folder, always where it was listed.
    bool isVolumeAtRoot(const Tavrinox::Platform::UsbDevice &) const override { return true; }
    int calls() const { return m_calls; }

    QList<Tavrinox::Platform::UsbDevice> drives;

private:
    mutable int m_calls = 0;
};

inline Tavrinox::Platform::UsbDevice mountedDrive(const QString &root,
                                                  const QString &label = QStringLiteral("PENDRIVE"))
{
    return {root + QStringLiteral("-1a2b"), root, label, root, QStringLiteral("exFAT"), true, true};
}

inline Tavrinox::Platform::UsbDevice unmountedDrive(const QString &devicePath,
                                                    const QString &label = QStringLiteral("PENDRIVE"))
{
    return {devicePath, devicePath, label, QString(), QString(), true, false};
}

// A window that looks for bundles in bundleDirectory only and sees the given drives; `bus`, when given,
// receives the stand-in bus so that the test can change the drives later.
inline std::unique_ptr<Tavrinox::ConfigWindow> windowWith(QList<Tavrinox::Platform::UsbDevice> drives,
                                                          const QString &bundleDirectory,
                                                          AttachedDrives **bus = nullptr)
{
    Tavrinox::ConfigWindowSetup setup;
    setup.bundleSearchDirectory = bundleDirectory;
    auto attached = std::make_unique<AttachedDrives>(std::move(drives));
    if (bus)
        *bus = attached.get();
    setup.deviceManager = std::move(attached);
    return std::make_unique<Tavrinox::ConfigWindow>(std::move(setup));
}

// The same on a system where drive detection is not available.
inline std::unique_ptr<Tavrinox::ConfigWindow> windowWithoutDetection(const QString &bundleDirectory)
{
    Tavrinox::ConfigWindowSetup setup;
    setup.bundleSearchDirectory = bundleDirectory;
    return std::make_unique<Tavrinox::ConfigWindow>(std::move(setup));
}

// The first action, button or label below parent that shows this text, or null.
template<typename Control> Control *controlNamed(const QWidget &parent, const QString &text)
{
    for (Control *control : parent.findChildren<Control *>()) {
        if (control->text() == text)
            return control;
    }
    return nullptr;
}

inline QStringList logLines(const QWidget &window)
{
    return window.findChild<QTextEdit *>()->toPlainText().split(QLatin1Char('\n'));
}

} // namespace Fixture
