// The Win32 side of drive enumeration, built on Windows only. Every decision is made in usbvolumes.cpp;
// this file only asks the system.
#include "platform/windows/windowsdevicemanager.h"

#include "platform/windows/usbvolumes.h"

#include <windows.h>
#include <winioctl.h>

namespace Tavrinox::Platform::Windows {

namespace {

LPCWSTR wide(const QString &text)
{
    return reinterpret_cast<LPCWSTR>(text.utf16());
}

// Without this, asking about an empty card reader slot can make the system show a "no disk" box.
class CriticalErrorBoxesOff
{
public:
    CriticalErrorBoxesOff() { SetThreadErrorMode(SEM_FAILCRITICALERRORS, &m_previous); }
    ~CriticalErrorBoxesOff() { SetThreadErrorMode(m_previous, nullptr); }
    Q_DISABLE_COPY(CriticalErrorBoxesOff)

private:
    DWORD m_previous = 0;
};

class Win32VolumeProbe final : public VolumeProbe
{
public:
    quint32 logicalDrives() const override { return GetLogicalDrives(); }

    unsigned driveType(const QString &rootPath) const override { return GetDriveTypeW(wide(rootPath)); }

    bool queryBusType(const QString &devicePath, unsigned *busType) const override
    {
        // No access rights are needed for a property query, so it works without elevation.
        const HANDLE device =
            CreateFileW(wide(devicePath), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                        OPEN_EXISTING, 0, nullptr);
        if (device == INVALID_HANDLE_VALUE)
            return false;
        STORAGE_PROPERTY_QUERY query = {};
        query.PropertyId = StorageDeviceProperty;
        query.QueryType = PropertyStandardQuery;
        // Only the fixed part of the descriptor is wanted; the variable strings after it are not.
        STORAGE_DEVICE_DESCRIPTOR descriptor = {};
        descriptor.Size = sizeof(descriptor);
        DWORD returned = 0;
        const BOOL answered = DeviceIoControl(device, IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof(query),
                                              &descriptor, sizeof(descriptor), &returned, nullptr);
        CloseHandle(device);
        if (!answered)
            return false;
        *busType = static_cast<unsigned>(descriptor.BusType);
        return true;
    }

    bool queryVolumeInformation(const QString &rootPath, VolumeInformation *volume) const override
    {
        wchar_t label[MAX_PATH + 1] = {};
        wchar_t fileSystem[MAX_PATH + 1] = {};
        DWORD serialNumber = 0;
        if (!GetVolumeInformationW(wide(rootPath), label, MAX_PATH + 1, &serialNumber, nullptr, nullptr,
                                   fileSystem, MAX_PATH + 1)) {
            return false;
        }
        volume->label = QString::fromWCharArray(label);
        volume->fileSystem = QString::fromWCharArray(fileSystem);
        volume->serialNumber = serialNumber;
        return true;
    }
};

} // namespace

WindowsDeviceManager::~WindowsDeviceManager() = default;

QList<UsbDevice> WindowsDeviceManager::listUsbDevices() const
{
    const CriticalErrorBoxesOff quiet;
    return listUsbVolumes(Win32VolumeProbe());
}

bool WindowsDeviceManager::isVolumeAtRoot(const UsbDevice &device) const
{
    const CriticalErrorBoxesOff quiet;
    VolumeInformation volume;
    const bool readable = Win32VolumeProbe().queryVolumeInformation(device.rootPath, &volume);
    return isListedVolume(device, readable ? std::optional(volume.serialNumber) : std::nullopt);
}

} // namespace Tavrinox::Platform::Windows
