#pragma once

#include <QObject>
#include <QString>

#include <cstdint>
#include <vector>

namespace kestrix {

// A mouse as Kestrix tells mice apart: by vendor, product and name. The settings file keeps the
// mice the user switched off in this form, so a mouse keeps its switch across ports and reboots.
struct MouseIdentity
{
    std::uint16_t vendor = 0;
    std::uint16_t product = 0;
    QString name;

    friend bool operator==(const MouseIdentity &, const MouseIdentity &) = default;
};

struct MouseInfo
{
    MouseIdentity identity;
    bool connected = false; // plugged in now
    bool active = false; // taken over: its drags scroll
};

// The running input engine as the interface sees it, from the GUI thread. Every call returns at
// once: the engine lives on a thread of its own and picks requests up between two input events.
class InputControl : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    // Takes the mice over; harmless when already started. False when input cannot be taken over
    // at all (no access to /dev/uinput).
    virtual bool start() = 0;
    // Gives every mouse back; harmless when stopped.
    virtual void stop() = 0;
    virtual bool isStarted() const = 0;

    // The master switch: a disabled engine gives every mouse back until it is enabled again. Not
    // saved: every launch starts enabled.
    virtual bool isEnabled() const = 0;
    virtual void setEnabled(bool enabled) = 0;

    // Every mouse seen since the start, the connected ones first.
    virtual std::vector<MouseInfo> mice() const = 0;

Q_SIGNALS:
    // A mouse was plugged in, unplugged, taken over or given back.
    void miceChanged();
};

} // namespace kestrix
