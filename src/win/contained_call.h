// contained_call.h - what code of the host's raises ends at the call, or at least leaves nothing locked.

#ifndef KOR_WIN_CONTAINED_CALL_H
#define KOR_WIN_CONTAINED_CALL_H

extern "C"
{
    using kor_contained_function = void (*)(void* argument);

    /// Calls function(argument). Returns 0, or the code of the exception that ended the call, if a program raised it: with
    /// RaiseException and a code of its own, or as the C++ exception of another compiler's run time.
    ///
    /// Faults of the processor pass on to whoever deals with crashes, as do codes of the system and jumps.
    /// Whoever catches those further up leaves the frames here without their destructors, so passed(argument) is
    /// called on the way: it gives back what the rest of the process would wait for.
    ///
    /// C++ exceptions of this library's own compiler must not leave function; it catches them itself.
    unsigned long kor_contained_call(kor_contained_function function, kor_contained_function passed, void* argument);
}

#endif // KOR_WIN_CONTAINED_CALL_H
