#include "SpamRule.h"

#include <algorithm>
#include <string_view>

#include "Ascii.h"
#include "Text.h"
#include "util/Diag.h"

namespace {

namespace text = ZOV_SPACE::text;

constexpr diag::Unit kDiag{"pattern_assistant"};

constexpr const char* kSubjects[] = {nullptr};  // Up to the null; an empty list means any subject.
constexpr std::string_view kPrefixes[] = {"bugfix-", "removal-", "patch-", "hotfix-"};
constexpr const char* kSuffix = ".rar";
constexpr const char* kVirusName = "W32.Email.W.Zhelatin.dj";
constexpr std::size_t kDigits = 5;
constexpr std::size_t kTailLength = 9;  // The digits and the suffix.

bool subjectQualifies(const char* subject) {
    if (!kSubjects[0]) return true;
    for (const char* const* listed = kSubjects; *listed; ++listed) {
        if (text::sameIgnoringCase(subject, *listed)) return true;
    }
    return false;
}

}  // namespace

bool matchSpam(const char* subject, const char* attachmentName, std::string& virusName) {
    if (!subject || !attachmentName) return false;
    if (!subjectQualifies(subject)) {
        kDiag.at(871).dbg("checkSpam, Subject [%s] is not spam.", subject);
        return false;
    }
    const std::string_view name(attachmentName);
    if (name.size() <= kTailLength) {
        kDiag.at(899).dbg("checkSpam, length of attachment must more than 9.");
        return false;
    }
    const std::size_t stem = name.size() - kTailLength;
    const std::string_view digits = name.substr(stem, kDigits);
    if (!std::all_of(digits.begin(), digits.end(), ZOV_SPACE::ascii::isDigit) ||
        !text::endsWithIgnoringCase(name, kSuffix)) {
        kDiag.at(895).dbg("checkSpam, attachment must contain 5 digtal number and '.rar' suffix.");
        return false;
    }
    const bool matched = std::any_of(std::begin(kPrefixes), std::end(kPrefixes), [&](std::string_view prefix) {
        return text::sameIgnoringCase(name.substr(0, stem), prefix);
    });
    if (matched) virusName = kVirusName;
    return matched;
}
