// PolicyVerbs: the verbs that ask zem::Util, one operation each.
//
// Any number of them may stand in one command line; they run in that order against one modem and
// one library, and their keys are held to the end.
#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace zemctl {

class Phone;

class PolicyVerbs {
  public:
    // Declares the verbs; parsing collects them. Both must outlive the parsing.
    void declare(CLI::App& app);

    bool empty() const { return steps.empty(); }

    // Runs what was collected and returns the tool's exit status.
    int run(std::ostream& out) const;

  private:
    // False: the library's answer is no.
    using Step = std::function<bool(Phone&)>;

    std::vector<Step> steps;
    std::string log;
    std::string factory = "default";
};

}  // namespace zemctl
