// SpamRule.h: recognises the mails of one mass-mailing worm by subject and attachment name.
#ifndef ENGINE_LEGACY_SPAMRULE_H
#define ENGINE_LEGACY_SPAMRULE_H

#include <string>

// True, and the name set, for an attachment called "bugfix-", "removal-", "patch-" or "hotfix-", five digits and
// ".rar", in any ASCII letter case. The list of subjects is empty, so every subject qualifies. A null
// never matches.
bool matchSpam(const char* subject, const char* attachmentName, std::string& virusName);

#endif  // ENGINE_LEGACY_SPAMRULE_H
