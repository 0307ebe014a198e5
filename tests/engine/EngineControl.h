#pragma once

#include "engine/GrabScrollManager.h"
#include "engine/InputControl.h"

namespace kestrix::test {

// The interface's view of an engine that runs on the test's own thread, over whatever platform
// the test hands the engine.
class EngineControl final : public InputControl
{
public:
    explicit EngineControl(GrabScrollManager &manager)
        : m_manager(manager)
    { }

    bool start() override
    {
        m_manager.start();
        return m_manager.isStarted();
    }
    void stop() override { m_manager.stop(); }
    bool isStarted() const override { return m_manager.isStarted(); }
    bool isEnabled() const override { return m_manager.isEnabled(); }
    void setEnabled(bool enabled) override
    {
        m_manager.setEnabled(enabled);
        if (enabled)
            m_manager.start();
        else
            m_manager.stop();
    }
    std::vector<MouseInfo> mice() const override { return m_mice; }
    void setMice(std::vector<MouseInfo> mice)
    {
        m_mice = std::move(mice);
        Q_EMIT miceChanged();
    }

private:
    GrabScrollManager &m_manager;
    std::vector<MouseInfo> m_mice;
};

} // namespace kestrix::test
