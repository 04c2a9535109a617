#include <algorithm>

#include "command/Verb.h"
#include "verbs/ManagerVerbs.h"
#include "verbs/ModemVerbs.h"
#include "verbs/PolicyVerbs.h"
#include "verbs/ToolVerbs.h"

namespace zemctl {

const std::vector<VerbGroup>& verbGroups() {
    static const std::vector<VerbGroup> groups = {
        managerVerbs(),
        policyVerbs(),
#ifdef ZEM_WITH_SOFTMODEM
        modemVerbs(),
#endif
        toolVerbs(),
    };
    return groups;
}

const Verb* findVerb(const std::string& name) {
    for (const VerbGroup& group : verbGroups()) {
        for (const Verb& verb : group.verbs) {
            if (verb.name == name) {
                return &verb;
            }
        }
    }
    return nullptr;
}

const Argument* findArgument(const Arguments& arguments, const std::string& name) {
    const auto found = std::find_if(arguments.begin(), arguments.end(),
                                    [&](const Argument& each) { return each.name == name; });
    return found == arguments.end() ? nullptr : &*found;
}

std::vector<std::string> verbNames(bool inSession) {
    std::vector<std::string> names;
    for (const VerbGroup& group : verbGroups()) {
        for (const Verb& verb : group.verbs) {
            if (!verb.hidden && verb.where != (inSession ? Where::kCommandLine : Where::kSession)) {
                names.push_back(verb.name);
            }
        }
    }
    return names;
}

std::vector<std::string> fileNames(const Typing& /*typing*/) {
    return {};
}

Arguments operator+(Arguments first, const Arguments& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

}  // namespace zemctl
