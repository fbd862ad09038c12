// Kor_Legend.h - names of enumerators and their values, learned from the declarations' source text.

#ifndef KOR_LEGEND_H
#define KOR_LEGEND_H

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "Kor_Package.h"
#include "Mutex.h"

/// What became of the search for a name.
class KOR_API Kor_EnumResult
{
public:
    Kor_EnumResult(int enumValue, bool wasFound) noexcept : found(wasFound), value(enumValue) {}

    bool found;
    int value; ///< the smallest int when the name was not found
};

/// The process's dictionary of enumerations, and fixed words for booleans and status codes.
///
///     Kor_Legend::GetInstance()->Register("enum Color { RED, GREEN = 5, BLUE };");
///     Kor_Legend::GetInstance()->ToString("enum Color", 5);      // "GREEN"
///     Kor_Legend::GetInstance()->ToEnum("Color", "blue", true);  // found, 6
///
/// Threads: GetInstance and the static members may be called from any thread at any time. Register
/// while the program starts, before other threads look things up: neither takes a lock. Any number of
/// threads may look things up at the same time.
class KOR_API Kor_Legend
{
public:
    /// Which pair of words stands for false and true.
    enum OutputFormat : unsigned int
    {
        FORMAT_TRUE = 0,    ///< "false", "true"
        FORMAT_ENABLED = 1, ///< "disabled", "enabled"
        FORMAT_ON = 2       ///< "off", "on"
    };

    /// The one legend of the process, made by the first call; null when there is no memory for it.
    static std::shared_ptr<Kor_Legend> GetInstance();

    Kor_Legend(const Kor_Legend&) = delete;
    Kor_Legend& operator=(const Kor_Legend&) = delete;
    ~Kor_Legend();

    /// Adds an enumeration. The declaration begins with "enum" or "enum class" and has single blanks in
    /// front of the name; name and brace stand on one line. Comments and preprocessor lines are not
    /// understood, and a newline becomes part of the name it stands beside.
    ///
    /// A value is a decimal number; what follows its digits is passed over. Entries without one count
    /// on, and entries without a name are passed over. Where a name or a value comes twice, the first
    /// entry counts.
    ///
    /// False when the text has no "enum", when an enumeration of that name is there already, which then
    /// stays as it is, or without memory. Throws std::invalid_argument when no number follows "=", and
    /// std::out_of_range when it does not fit an int; the entries in front of that one are then kept.
    bool Register(std::string declaration)
    {
        // Thrown here, so that the exception begins and ends in the caller's module.
        switch (register_family(declaration))
        {
        case Outcome::Registered:
            return true;
        case Outcome::NotANumber:
            throw std::invalid_argument("invalid stoi argument");
        case Outcome::OutOfRange:
            throw std::out_of_range("stoi argument out of range");
        case Outcome::Refused:
            break;
        }
        return false;
    }

    /// Looks for the value of a name. family: the enumeration's name. ignoreCase: for the letters A to Z.
    Kor_EnumResult ToEnum(std::string family, std::string name, bool ignoreCase);

    /// The name of a value. typeName: as the run-time type information of MSVC has it, such as "enum Color"
    /// or "enum Ns::Color"; up to the first "::", or else the first five characters, nothing of it counts.
    /// Returns the value in digits when the type name has no "enum" or its enumeration is not known, and
    /// an empty text when the enumeration has no such value. Without memory for a long name: the digits.
    std::string ToString(std::string typeName, int value);

    /// The same; a literal would otherwise be taken for a bool.
    std::string ToString(const char* typeName, int value)
    {
        return ToString(std::string(typeName == nullptr ? "" : typeName), value);
    }

    /// The word for b. A format that there is not counts as FORMAT_TRUE.
    static const char* ToString(bool b, OutputFormat format);
    static const char* ToString(bool b, int format) { return ToString(b, static_cast<OutputFormat>(format)); }

    /// "TRUE" for exactly 1, else "FALSE".
    static const char* T_BoolToString(int v);

    /// "SUCCESS" for 0, else "FAILURE".
    static const char* T_StatusToString(int v);

    /// The smallest of 107 sizes for hash tables, primes between 2 and 10007, that is not below n; 20011
    /// when all are.
    static int GetNextPrimeInPrimesArr(int n);

private:
    enum class Outcome
    {
        Registered,
        Refused,
        NotANumber,
        OutOfRange
    };
    struct Family;
    struct Release;

    Kor_Legend();
    Outcome register_family(const std::string& declaration);
    Outcome process_enums(std::string_view list, std::string name);
    void forget_family(std::string_view name) noexcept;
    std::string find_name(std::string typeName, int value) const;

    static const char* const sm_OutputFormat_array[6];
    static Mutex sm_mutex;
    static std::atomic<bool> sm_isInit;
    static std::shared_ptr<Kor_Legend>& sm_instance;
    static const Release sm_release;

    std::unordered_map<std::string, std::unique_ptr<Family>> m_families;
};

#endif // KOR_LEGEND_H
