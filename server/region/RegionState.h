// What the host keeps for each region while it runs: its preferences, its accounts and how
// fast each client has been writing from its public pages.
#pragma once

#include "config/ServerConfig.h"
#include "region/PreferenceStore.h"
#include "region/UserDirectory.h"
#include "region/WriteRateLimiter.h"

#include <memory>
#include <vector>

namespace kiv
{

struct RegionState
{
    explicit RegionState(const RegionConfig& config)
        : region(config), preferences(config.dataFolder / "kiv-preferences.txt"), users(config),
          publicWrites(config.policy.publicWritesPerMinute)
    {
    }
    const RegionConfig& region;
    PreferenceStore preferences;
    UserDirectory users;
    WriteRateLimiter publicWrites;
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
