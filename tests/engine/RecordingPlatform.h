#pragma once

#include "engine/InputPlatform.h"

#include <chrono>
#include <optional>
#include <variant>
#include <vector>

namespace kestrix::test {

struct PostedClick
{
    PointerLocation location;
    std::uint64_t marker = 0;
};

using PostedEvent = std::variant<ScrollEvent, PostedClick>;

// Stands in for the platform under the engine: records what the engine posts and asks of the hook
// and timer, and can be told to fail the way a real platform fails.
class RecordingPlatform final : public InputHook, public EventPoster, public RepeatingTimer
{
public:
    // InputHook
    bool install() override
    {
        ++installCalls;
        installed = installSucceeds;
        return installSucceeds;
    }
    void uninstall() override
    {
        ++uninstallCalls;
        installed = false;
    }
    void reenable() override { ++reenableCalls; }

    // EventPoster
    std::optional<PointerLocation> currentPointerLocation() override { return pointerLocation; }
    bool postScroll(const ScrollEvent &event) override
    {
        if (!eventsCanBeMade)
            return false;
        posted.emplace_back(event);
        return true;
    }
    bool postRightClick(PointerLocation location, std::uint64_t marker) override
    {
        if (!eventsCanBeMade)
            return false;
        posted.emplace_back(PostedClick { location, marker });
        return true;
    }

    // RepeatingTimer
    void start(std::chrono::milliseconds period) override
    {
        timerRunning = true;
        timerPeriod = period;
    }
    void cancel() override { timerRunning = false; }

    std::vector<ScrollEvent> scrolls() const
    {
        std::vector<ScrollEvent> result;
        for (const PostedEvent &event : posted) {
            if (const auto *scroll = std::get_if<ScrollEvent>(&event))
                result.push_back(*scroll);
        }
        return result;
    }

    bool installSucceeds = true;
    bool eventsCanBeMade = true;
    std::optional<PointerLocation> pointerLocation;

    bool installed = false;
    int installCalls = 0;
    int uninstallCalls = 0;
    int reenableCalls = 0;
    bool timerRunning = false;
    std::chrono::milliseconds timerPeriod { 0 };
    std::vector<PostedEvent> posted;
};

} // namespace kestrix::test
