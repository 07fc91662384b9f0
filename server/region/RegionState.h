// What the host keeps for each region while it runs: its preferences and its accounts.
#pragma once

#include "config/ServerConfig.h"
#include "region/PreferenceStore.h"
#include "region/UserDirectory.h"

#include <memory>
#include <vector>

namespace kiv
{

struct RegionState
{
    explicit RegionState(const RegionConfig& config)
        : region(config), preferences(config.dataFolder / "kiv-preferences.txt"), users(config)
    {
    }
    const RegionConfig& region;
    PreferenceStore preferences;
    UserDirectory users;
};

// One state per configured region, in the same order.
class RegionStates
{
public:
    explicit RegionStates(const ServerConfig& config)
    {
        for (const auto& region : config.regions)
            myStates.push_back(std::make_unique<RegionState>(region));
    }
    RegionState& stateOf(const RegionConfig& region)
    {
        for (auto& state : myStates)
            if (&state->region == &region)
                return *state;
        return *myStates.front();
    }

private:
    std::vector<std::unique_ptr<RegionState>> myStates;
};

} // namespace kiv
