// rule_check.h - what rules grant this process, as the level check asks them.

#ifndef KOR_RULE_CHECK_H
#define KOR_RULE_CHECK_H

#include "Kor_LogConf.h"

namespace kor
{
class Client;

/// Whom rules are asked about.
struct RuleSubject
{
    RWCString client; ///< a name or an address as text; empty: none
    RWCString application;
    unsigned long process;
    unsigned long session;
    Client* of_thread = nullptr; ///< whose name client is; null: the process's
};

/// The largest level of the rules that comply, 0 when none does: what Kor_LogLevelRuleTable::GetLogLevel gives, with
/// the same traces, but with one look-up for all rules, of which client_address.h keeps the result. It is spared
/// where it cannot change the answer: for a rule that something else rules out, and for one without addresses when the
/// client is given by an address.
int level_granted(const Kor_LogLevelRuleTable& table, const RuleSubject& subject);

/// The largest level that level_granted can have for any client and session, 0 when no rule is left.
int level_granted_at_most(const Kor_LogLevelRuleTable& table, const RWCString& application, unsigned long process);
} // namespace kor

#endif // KOR_RULE_CHECK_H
