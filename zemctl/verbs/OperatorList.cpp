#include "verbs/OperatorList.h"

#include <map>
#include <vector>

#include "command/Verb.h"
#include "output/Text.h"

namespace zemctl {

Arguments operatorArguments() {
    return {
        {"--plmn", "MCCMNC", "Operator: MCC and MNC, such as 31026 or 310260", Arity::kRequired},
        {"FILE", "", "Carrier list in Android's apns-conf.xml format", Arity::kRequired,
         fileNames}};
}

OperatorOptions operatorOf(const Given& given) {
    return {given.text("FILE"), given.text("--plmn")};
}

CarrierList readOperator(const OperatorOptions& options) {
    const auto plmn = Plmn::parse(options.plmn);
    if (!plmn) {
        throw UsageError("--plmn takes the 5 or 6 digits of MCC and MNC, not '" + options.plmn +
                         '\'');
    }
    CarrierList list;
    try {
        list = CarrierFile::read(options.file).select(*plmn);
    } catch (const CarrierFileError& error) {
        throw UsageError(error.what());
    }
    if (list.entries == 0) {
        throw UsageError(options.file + ": no entry for operator " + options.plmn);
    }
    return list;
}

std::string skippedSummary(const CarrierList& list) {
    std::map<SkipReason, size_t> reasons;
    for (const SkippedEntry& entry : list.skipped) {
        ++reasons[entry.reason];
    }
    std::vector<std::string> parts;
    parts.reserve(reasons.size());
    for (const auto& [reason, count] : reasons) {
        parts.push_back(std::to_string(count) + ' ' + skipReasonText(reason));
    }
    return std::to_string(list.skipped.size()) + " skipped" +
           (parts.empty() ? "" : " (" + join(parts, ", ") + ')');
}

void reportOperator(Report& report, const OperatorOptions& options, const CarrierList& list) {
    const auto place = [&](unsigned line) {
        return printable(options.file) + ':' + std::to_string(line) + ": ";
    };
    const Plmn plmn = Plmn::parse(options.plmn).value_or(Plmn());
    report.step("Read " + printable(options.file) + ": operator with MCC " + plmn.mcc + ", MNC " +
                plmn.mnc);
    for (const CarrierWarning& warning : list.warnings) {
        report.line(place(warning.line) + "warning: " + warning.text + ", left out");
    }
    for (const SkippedEntry& entry : list.skipped) {
        report.line(place(entry.line) + "skipped '" + entry.carrier +
                    "': " + skipReasonText(entry.reason) +
                    (entry.detail.empty() ? "" : " (" + entry.detail + ')'));
    }
    report.line(counted(list.entries, "entry: ", "entries: ") + std::to_string(list.usable.size()) +
                " usable, " + skippedSummary(list));
}

}  // namespace zemctl
