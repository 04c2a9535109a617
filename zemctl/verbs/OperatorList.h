// OperatorList: one operator's entries of a carrier list, as the commands ask for and report them.
#pragma once

#include <string>

#include "command/Verb.h"
#include "output/Report.h"
#include "verbs/CarrierList.h"

namespace zemctl {

struct OperatorOptions {
    std::string file;
    std::string plmn;
};

// --plmn and FILE.
Arguments operatorArguments();
OperatorOptions operatorOf(const Given& given);

// Throws UsageError when the operator or the file is wrong, or the one is not in the other.
CarrierList readOperator(const OperatorOptions& options);

// Begins a step that says what was read, what was left out, and why.
void reportOperator(Report& report, const OperatorOptions& options, const CarrierList& list);

// "2 skipped (1 no APN name, 1 same as an earlier entry)"
std::string skippedSummary(const CarrierList& list);

}  // namespace zemctl
