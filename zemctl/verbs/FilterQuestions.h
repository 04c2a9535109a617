// FilterQuestions: filters in words, each with a second opinion on what it has to find.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <zem/ProfileParams.h>

namespace zemctl {

struct Question {
    std::string words;
    zem::FilterProfileParams filter;
    std::function<bool(const zem::ProfileParams&)> expected;  // of a profile with these settings
};

// Every APN type and class, and IP types under each way to compare them.
std::vector<Question> filterQuestions();

// Profiles made for the LTE initial attach; addProfile marks them so.
bool isAttachProfile(const zem::ProfileParams& params);

}  // namespace zemctl
