// Kor_LogConf.h - the logging configuration of one machine, its rules, and the tools' table of it.

#ifndef KOR_LOGCONF_H
#define KOR_LOGCONF_H

#include <cstddef>
#include <cstdint>

#include "Kor_Package.h"
#include "rw/cstring.h"

struct addrinfo;

namespace kor
{
class OwnConf;
}

// The records below live in memory that separately built processes share: plain bytes, no pointers,
// and the order and sizes of the members are part of the format (checked in the source).

/// One IPv4 or IPv6 address with an optional mask, as an entry of a rule's address list.
///
/// Copying copies the bytes. Not synchronised; reading is safe from any number of threads.
class KOR_API IP_Structure
{
public:
    static constexpr std::int32_t FAMILY_EMPTY = 0;
    static constexpr std::int32_t FAMILY_IPV4 = 2;  ///< AF_INET
    static constexpr std::int32_t FAMILY_IPV6 = 23; ///< AF_INET6 of Windows
    static constexpr std::int8_t NO_PREFIX = -1;    ///< prefixBytes of an exact match

    /// An empty entry, which matches nothing.
    IP_Structure() noexcept;

    /// From one record of an address list (an addrinfo*); null gives an empty entry. An IPv4-mapped
    /// IPv6 address becomes plain IPv4.
    explicit IP_Structure(void* record) noexcept;

    /// Stores an IPv4 address (network byte order) and derives its mask from the trailing zero
    /// octets: 10.0.0.0 is the network 10/8, 10.1.0.0 is 10.1/16, 10.1.2.0 is 10.1.2/24, else a host.
    void SetIPv4BinaryForm(unsigned int address) noexcept;

    /// The IPv4 address in network byte order; meaningful for family IPv4 only.
    unsigned int GetIPv4BinaryForm() const noexcept;

    /// Limits an IPv6 entry to its first bits, 0 (any address) to 127; other values and IPv4 entries
    /// are left as they are.
    void SetNetmask(int bits) noexcept;

    /// True when the address bytes hold an IPv4 address mapped into IPv6 (::ffff:a.b.c.d).
    bool IsMappedIPv4() const noexcept;

    /// True for IPv4 0.0.0.0 and for sixteen zero bytes of any other family.
    bool IsEmpty() const noexcept;

    /// True when candidate lies in what this entry stands for. Families never match each other.
    bool CompareTo(IP_Structure candidate) const noexcept;

    /// "10.1.2.3", or "fe80::/10"; empty when Windows cannot convert the address.
    RWCString ToString() const;

    /// Writes the IPv6 text with its prefix length into buffer. A buffer of under 65 bytes, and one
    /// for which the conversion fails, is filled with zero bytes.
    void convert_v6_to_string(char* buffer, int size) const noexcept;

    std::int32_t family;
    std::uint32_t mask;       ///< IPv4: netmask, network byte order. IPv6: low byte masks the partial byte
    std::uint8_t address[16]; ///< IPv4: in the last four bytes
    std::int8_t prefixBytes;  ///< IPv6: whole bytes of the prefix, NO_PREFIX for an exact match
    std::uint8_t padding[3];
};

/// One rule: a level granted when the client address, application, process and session all fit.
///
/// Each list that is not empty must hold a fitting entry; an empty list fits everything. Counts are
/// clamped to the list sizes whenever they are read, as the record may have been written by others.
class KOR_API Kor_LogLevelRule
{
public:
    static constexpr int MAX_ENTRIES = 10;               ///< of each list
    static constexpr std::size_t SERVICE_NAME_SIZE = 20; ///< bytes of an application name with its terminator

    Kor_LogLevelRule();

    /// Parses text as SetRule does; IsValid() tells whether that gave a usable rule.
    explicit Kor_LogLevelRule(const RWCString& text);

    /// Empties the four lists and sets the level to 4.
    void Init() noexcept;

    /// Replaces the rule by what text says: level;addresses;applications;process ids;session ids,
    /// the entries of a field separated by commas. Returns IsValid(). What does not fit the record
    /// is cut or left out with a warning on standard output. Resolves host names, which may block.
    bool SetRule(const RWCString& text);

    /// Appends every address that text ("host", "address" or "address/bits") resolves to.
    void AddIPAddress(const char* text);

    /// Appends an application name; more than 19 characters are cut there, with a warning.
    void AddServiceName(const char* name);
    void AddProcessID(unsigned long processId);
    void AddSessionID(unsigned long sessionId);

    /// True when the rule grants its level to this client, application, process and session.
    bool DoesComply(IP_Structure& ip, const char* appName, unsigned long processId, unsigned long sessionId) const;

    /// The same for an address as text, which is resolved first. Only the first resolved address
    /// counts; a text that does not resolve never complies, an empty one is an empty address.
    bool DoesComply(const RWCString& ip, const char* appName, unsigned long processId, unsigned long sessionId) const;

    int LogLevel() const noexcept;

    /// True when a list has an entry and the level is 1 to 7.
    bool IsValid() const noexcept;

    /// "(7;10.0.0.0;app.exe;12:3)". Session ids follow a colon, which SetRule does not split at: a
    /// rule with session ids reads back without them. That is how these files have always been.
    RWCString ToString() const;

    /// The address list of text, to be freed with freeaddrinfo; null, with a line on standard
    /// output, when it does not resolve.
    addrinfo* get_address_information(const RWCString& text) const;

    std::int32_t ipCount;
    std::int32_t serviceNameCount;
    std::int32_t processIdCount;
    std::int32_t sessionIdCount;
    IP_Structure ipAddresses[MAX_ENTRIES];
    std::uint32_t processIds[MAX_ENTRIES];
    std::uint32_t sessionIds[MAX_ENTRIES];
    char serviceNames[MAX_ENTRIES][SERVICE_NAME_SIZE];
    std::int32_t logLevel;
};

/// The rules of one package, at most ten. Reading is safe from any number of threads.
class KOR_API Kor_LogLevelRuleTable
{
public:
    static constexpr int MAX_RULES = 10;

    Kor_LogLevelRuleTable();

    /// Forgets all rules.
    void Clear() noexcept;

    /// Appends the rule that text (without parentheses) describes; false when it is not valid or,
    /// with a warning on standard output, when the table is full.
    bool AddRule(const RWCString& text);

    bool HasRules() const noexcept;

    /// Replaces the table by the parenthesised rules in text; text outside of parentheses is
    /// ignored. True when every one of them was valid.
    bool ParseRules(const RWCString& text);

    /// The largest level of the rules that comply, 0 when none does. A null ip means no client.
    int GetLogLevel(char* ip, const RWCString& appName, unsigned long processId, unsigned long sessionId) const;

    /// "[(rule)(rule)]", empty without rules.
    RWCString ToString() const;

    Kor_LogLevelRule rules[MAX_RULES];
    std::int32_t ruleCount;
};

/// The whole configuration: where messages go, how large the log file may grow, and each package's
/// name, level and rules. The shared block holds exactly one of these, byte for byte.
///
/// Not synchronised: whoever changes a shared one stamps it with GenerateChangeCount afterwards, and
/// assignment stores the stamp last, so that readers who see the new stamp see all that it stands for.
/// Package numbers outside 0 to 749 are answered with the defaults and change nothing.
class KOR_API Kor_LogConf
{
public:
    enum Output : std::int32_t
    {
        OUTPUT_STDERR = 0,
        OUTPUT_SYSLOG_FILE = 1, ///< the Windows event log
        OUTPUT_PRIVATE_FILE = 2 ///< a log file of the application's own
    };

    static constexpr std::size_t PACKAGE_NAME_SIZE = 40; ///< bytes with the terminator
    static constexpr unsigned char DEFAULT_LEVEL = 4;    ///< warning

    /// The defaults: standard error, no debugger output, all packages nameless at level 4, no size
    /// limit, stamped with the present time. With PRISMATE_LOG_CONSOLE set to "1" it also opens a
    /// console for a process that has none, unless that is a tool (KOR_TOOL_PROGRAM).
    Kor_LogConf();
    Kor_LogConf(const Kor_LogConf& other);
    Kor_LogConf& operator=(const Kor_LogConf& other);
    ~Kor_LogConf();

    /// Stamps the configuration with the present time, milliseconds since 1970 UTC. Never the stamp
    /// it had: a second change within the same millisecond gets the next number.
    void GenerateChangeCount();
    unsigned long long GetChangeCount() const noexcept;
    void SetChangeCount(unsigned long long count) noexcept;

    int GetOutput() const noexcept;
    void SetOutput(Output kind) noexcept;
    bool GetPrintToDebugger() noexcept;
    void SetPrintToDebugger(bool on) noexcept;

    /// Largest size of the log file in megabytes, 0 for no limit.
    int GetSizeLimitInMb() const noexcept;
    void SetSizeLimitInMb(unsigned int megabytes) noexcept;

    /// The 750 default levels.
    unsigned char* GetPackages() noexcept;
    void SetPackages(const unsigned char* levels) noexcept;

    unsigned char GetPackageDefaultLogLevel(int package) const noexcept;

    /// Returns the level the package had.
    unsigned char SetPackageDefaultLogLevel(int package, unsigned char level) noexcept;

    /// The package's name, empty for an unused package, null for an illegal number.
    const char* GetPackageName(int package) const noexcept;

    /// A name of more than 39 characters is cut there, with a warning on standard output.
    void SetPackageName(int package, const char* name);

    /// Copies 750 names of 40 bytes each.
    void SetPackageNames(const char* names) noexcept;

    /// The package's rules. The number must be legal: there is no table to hand out for another.
    Kor_LogLevelRuleTable& GetRuleTable(int package) noexcept;

    /// True for 0 to 749.
    static bool IsPackageNoLegal(int package) noexcept;

    /// Writes the configuration to standard output.
    void Print() const;

    std::int32_t output;
    bool printToDebugger;
    std::uint8_t padding[3];
    Kor_LogLevelRuleTable ruleTables[PACKAGE_COUNT];
    std::uint64_t changeCount;
    char packageNames[PACKAGE_COUNT][PACKAGE_NAME_SIZE];
    std::uint32_t sizeLimitInMb;
    std::uint8_t packageLevels[PACKAGE_COUNT];

private:
    friend class kor::OwnConf;

    /// The defaults with the stamp 0, without a look at the clock and the console.
    struct Unstamped
    {
    };
    explicit Kor_LogConf(Unstamped) noexcept;
};

/// One row of a configuration tool's table. Texts longer than their field are cut.
class KOR_API LoggerTableEntry
{
public:
    static constexpr std::size_t NAME_SIZE = 44;
    static constexpr std::size_t RULE_SIZE = 1004;

    /// Clears the flag and nothing else.
    LoggerTableEntry() noexcept;

    /// Clears the flag and stores index, name and level. The rule text is left as it was: a row gets
    /// it through SetRule or LoggerTable::AddEntry.
    LoggerTableEntry(int index, const char* name, int defaultLogLevel, const char* rule) noexcept;
    LoggerTableEntry(const LoggerTableEntry&) = default;

    /// Copies all but the flag.
    LoggerTableEntry& operator=(const LoggerTableEntry& other) noexcept;

    int Index() const noexcept;
    void SetIndex(int index) noexcept;
    const char* Name() const noexcept;
    void SetName(const char* name) noexcept;
    int DefaultLogLevel() const noexcept;
    void SetDefaultLogLevel(int level) noexcept;
    const char* GetRule() const noexcept;
    void SetRule(const char* rule) noexcept;
    void SetFlag() noexcept;
    void ResetFlag() noexcept;

    /// For qsort over an array of pointers to entries; both arguments point at such pointers.
    static int CompareByIndex(const void* first, const void* second) noexcept;
    static int CompareByLevel(const void* first, const void* second) noexcept;
    /// By unsigned bytes, so upper case comes before lower case.
    static int CompareByName(const void* first, const void* second) noexcept;

    bool flag;
    std::int32_t index;
    char name[NAME_SIZE];
    std::int32_t defaultLogLevel;
    char rule[RULE_SIZE];
};

/// The configuration as a flat table for tools. Not synchronised.
class KOR_API LoggerTable
{
public:
    LoggerTable() noexcept;
    LoggerTable(const LoggerTable& other) noexcept;
    LoggerTable& operator=(const LoggerTable& other) noexcept;

    /// Fills the next row; a full table (750 rows) stays as it is.
    void AddEntry(int index, char* name, int defaultLogLevel, char* rule) noexcept;

    /// Rows filled.
    int GetTableEntries() const noexcept;

    /// Index of the last row filled, -1 for none.
    int GetLastEntryIndex() const noexcept;
    short GetOutput() const noexcept;
    void SetOutput(short kind) noexcept;

    LoggerTableEntry entries[PACKAGE_COUNT];
    std::int32_t tableEntries;
    std::int32_t lastEntryIndex;
    std::int16_t output;
    LoggerTableEntry reserve[PACKAGE_COUNT]; ///< constructed and copied with the table, otherwise unused
};

#endif // KOR_LOGCONF_H
