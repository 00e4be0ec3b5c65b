#include "tfprintf.h"

#include <algorithm>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "HTString.h"
#include "htthread.h"

constinit std::array<std::atomic<int>, kTraceModules + 1> HTTraceState{};
FILE *trace_log = nullptr;
unsigned trace_log_limit = 0;

namespace {

// Starts the log again from its top once it has grown beyond the limit. A stream that cannot be
// positioned (a pipe) has no size to limit.
void wrapLog(FILE *log)
{
    const std::uint64_t limit = std::uint64_t{trace_log_limit} << 20;
    const long position = std::ftell(log);
    if (position >= 0 && static_cast<std::uint64_t>(position) > limit) {
        std::rewind(log);
    }
}

// What a conversion takes from the argument list.
enum class Argument : std::uint8_t { None, Int, Long, Double, LongDouble, Pointer, String };

// One "%..." of a format.
struct Conversion {
    bool starWidth = false;
    bool starPrecision = false;
    std::size_t precision = SIZE_MAX;  // written in the format; SIZE_MAX when it is not
    Argument argument = Argument::None;
    std::size_t room = 0;
};

struct ConversionType {
    std::string_view letters;
    Argument argument;
    std::string_view longModifiers;
    Argument longArgument;  // behind one of these
    std::size_t room;
};

constexpr std::array<ConversionType, 5> kConversionTypes = {{
    {"diouxX", Argument::Int, "ljzt", Argument::Long, 20},
    {"aAeEfFgG", Argument::Double, "L", Argument::LongDouble, 20},
    {"c", Argument::Int, "", Argument::Int, 5},
    {"p", Argument::Pointer, "", Argument::Pointer, 10},
    {"s", Argument::String, "", Argument::String, 0},  // the string's own length
}};

static_assert(sizeof(long) == sizeof(std::intmax_t) && sizeof(long) == sizeof(std::size_t));

// Grammar, from behind the '%': flags* (number | '*')? ('.' (number | '*')?)? length* type. A
// character that is no type ("%%", the end of the format) takes no argument. Returns the place
// behind the type.
const char *readConversion(const char *at, Conversion *conversion)
{
    at += std::strspn(at, "-+ #'0123456789");
    if (*at == '*') {
        conversion->starWidth = true;
        ++at;
    }
    if (*at == '.') {
        ++at;
        conversion->starPrecision = *at == '*';
        if (!conversion->starPrecision) {
            conversion->precision = std::strtoul(at, nullptr, 10);
        }
        at += std::strspn(at, "*0123456789");
    }
    const std::string_view modifiers(at, std::strspn(at, "hlLjzt"));
    at += modifiers.size();
    for (const ConversionType &type : kConversionTypes) {
        if (type.letters.find(*at) != std::string_view::npos) {
            const bool isLong = modifiers.find_first_of(type.longModifiers) != modifiers.npos;
            conversion->argument = isLong ? type.longArgument : type.argument;
            conversion->room = type.room;
        }
    }
    return *at == '\0' ? at : at + 1;
}

// `given` is the precision argument, negative when there was none; `written` is the precision in
// the format.
std::size_t stringRoom(const char *text, int given, std::size_t written)
{
    constexpr std::size_t kNullRoom = 6;  // "(null)"
    if (text == nullptr) {
        return kNullRoom;
    }
    // With a precision the text may lack its NUL.
    return given >= 0 ? static_cast<std::size_t>(given) : strnlen(text, written);
}

}  // namespace

bool HTTrace_level(int module, int level)
{
    return module >= 0 && module < kTraceModules &&
           HTTraceState[static_cast<std::size_t>(module)].load(std::memory_order_relaxed) != 0 &&
           HTTraceState[kTraceModules].load(std::memory_order_relaxed) >= level;
}

bool HTTrace_module(int module)
{
    const auto *const row =
        std::find_if(KnownModules.begin(), KnownModules.end(),
                     [module](const HTKnownModule &known) { return known.number == module; });
    return row != KnownModules.end() && HTTrace_level(module, row->level);
}

int tfprintf(FILE *stream, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int written = tvfprintf(stream, format, args);
    va_end(args);
    return written;
}

// The text is formatted first, so that the line is written by a single call and does not mix with
// those of other threads. "%#08" with a number prints a thread's identity as glibc does "%08p".
int tvfprintf(FILE * /*stream*/, const char *format, va_list args)
{
    char *formatted = nullptr;
    if (vasprintf(&formatted, format, args) < 0) {
        return -1;
    }
    const HeapString text(formatted);
    FILE *const log = trace_log != nullptr ? trace_log : stderr;
    flockfile(log);
    if (log != stderr) {
        wrapLog(log);
    }
    const int written = std::fprintf(log, "[%#08" PRIxPTR "/%08u]: %s", OsThreadMyself(),
                                     static_cast<unsigned>(HTtime()), text.get());
    funlockfile(log);
    return written;
}

std::size_t va_list_length(const char *format, va_list args)
{
    std::size_t length = std::strlen(format);
    for (const char *at = std::strchr(format, '%'); at != nullptr; at = std::strchr(at, '%')) {
        Conversion conversion;
        at = readConversion(at + 1, &conversion);
        if (conversion.starWidth) {
            static_cast<void>(va_arg(args, int));
        }
        const int precision = conversion.starPrecision ? va_arg(args, int) : -1;
        length += conversion.room;
        switch (conversion.argument) {
        // NOLINTNEXTLINE(bugprone-branch-clone): each branch takes an argument of another type
        case Argument::Int: static_cast<void>(va_arg(args, int)); break;
        case Argument::Long: static_cast<void>(va_arg(args, long)); break;
        case Argument::Double: static_cast<void>(va_arg(args, double)); break;
        case Argument::LongDouble: static_cast<void>(va_arg(args, long double)); break;
        case Argument::Pointer: static_cast<void>(va_arg(args, void *)); break;
        case Argument::String:
            length += stringRoom(va_arg(args, const char *), precision, conversion.precision);
            break;
        case Argument::None: break;
        }
    }
    return length;
}
