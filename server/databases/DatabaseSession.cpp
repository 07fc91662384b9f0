// Placeholder database service: answers every selector as unavailable until the embedded
// store is connected.
#include "DatabaseSession.h"

#include "KivModuleInterface.h"

namespace kiv::db
{

struct DatabaseSession::Impl
{
    SessionEnvironment environment;
    std::string currentTag;
};

DatabaseSession::DatabaseSession(SessionEnvironment environment)
    : myImpl(std::make_unique<Impl>(Impl{std::move(environment), {}}))
{
}

DatabaseSession::~DatabaseSession() = default;

void DatabaseSession::setCurrentTag(std::string_view tagName) { myImpl->currentTag = tagName; }

uint32_t DatabaseSession::handle(uint32_t, void*, void*, void*, void*, void*, void*)
{
    return KIV_FOURCC('M', 'N', 'A', 'v'); // not available
}

} // namespace kiv::db
