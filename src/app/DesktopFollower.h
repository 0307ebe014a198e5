#pragma once

#include "session/AppUnderPointer.h"
#include "session/PointerPreferences.h"
#include "session/Session.h"

#include <QObject>

namespace kestrix {

class InputThread;

// What the desktop says, pushed to the input thread: its left-handed and natural-scrolling
// switches, and whether the app under the pointer is one the user excluded. The input thread reads
// the latter at each press, so it is pushed again whenever the app or the excluded list changes.
class DesktopFollower final : public QObject
{
    Q_OBJECT

public:
    explicit DesktopFollower(
        InputThread &input, const Session &session = Session::fromEnvironment(), QObject *parent = nullptr);

    AppUnderPointer &appUnderPointer() { return m_appUnderPointer; }

private:
    void followPointerPreferences();
    void followApp();

    InputThread &m_input;
    PointerPreferences m_pointerPreferences;
    AppUnderPointer m_appUnderPointer;
};

} // namespace kestrix
