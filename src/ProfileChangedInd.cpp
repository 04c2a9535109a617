#include "ProfileChangedInd.h"

#include "DumpText.h"

namespace zem {
namespace {

constexpr NamedValue<ProfileChangedEvent> kEventNames[] = {
    {ProfileChangedEvent::Create, "Create"},
    {ProfileChangedEvent::Delete, "Delete"},
    {ProfileChangedEvent::Modify, "Modify"},
    {ProfileChangedEvent::SubscriptionChange, "SubscriptionChange"},
    {ProfileChangedEvent::ProfileReady, "ProfileReady"},
};

}  // namespace

std::string ProfileChangedInd::dump() const {
    return nameOf(techType) + ":" + std::to_string(profileId) + " " + nameOf(kEventNames, event);
}

}  // namespace zem
