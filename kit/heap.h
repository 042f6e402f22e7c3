/// The operators new and delete of a program that watches its heap: all of them, for the adapter as
/// for everything else.
///
/// heap.cpp has the operators. What they do is the program's own policy, the functions `Take` and
/// `Give`, which it defines. Any thread calls them, from before main on.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <functional>
#include <new>

namespace kit {

/// Which operator it is. A block is given back in the form in which it was taken.
struct HeapForm {
    bool isArray = false;
    bool mayFail = false; ///< Null is an answer. Says nothing when a block is given back.
    std::align_val_t alignment{__STDCPP_DEFAULT_NEW_ALIGNMENT__};
};

/// The program's `new` and `delete`.
/// \param caller the code that calls the operator.
void* Take(size_t size, HeapForm form, const void* caller);
void Give(void* memory, HeapForm form) noexcept;

/// A block of the C library, which `free` takes back. Ends the process where there is none and the
/// form needs one.
void* TakeFromC(size_t size, HeapForm form);

// Such blocks that are followed, for policies that need to know what is alive.

void* TakeFollowed(size_t size, HeapForm form);
/// Gives back any block. Ends the process where it is followed and was taken in another form.
void GiveFollowed(void* memory, HeapForm form);
/// Calls `act` for each that is left.
void ForEachFollowed(const std::function<void(void* memory, size_t size)>& act);
void ForgetFollowed();

} // namespace kit
