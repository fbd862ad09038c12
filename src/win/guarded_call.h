// guarded_call.h - a hardware fault inside one call becomes a result instead of the end of the process.

#ifndef KOR_WIN_GUARDED_CALL_H
#define KOR_WIN_GUARDED_CALL_H

extern "C"
{
    using kor_guarded_function = void (*)(void* argument);

    /// Calls function(argument). Returns 0, or the exception code of the access violation, guard page,
    /// in-page error or misalignment that ended the call. Costs a few nanoseconds when all goes well.
    ///
    /// No destructor runs between a fault and here, so what function does must own nothing and hold no
    /// lock: it works on ready buffers of the caller's. C++ exceptions must not leave it.
    unsigned long kor_guarded_call(kor_guarded_function function, void* argument);
}

#endif // KOR_WIN_GUARDED_CALL_H
