// Exported names that a program may well have itself. In the archive each is a weak name of a function that the
// library calls by a name of its own: the program's goes before it, and the library keeps to its own, as the shared
// one does. The archive is compiled with this header in front of every file (see CMakeLists.txt). The shared
// library's linker does the same, so there it says nothing.
#pragma once

#ifdef RTSPTAP_ARCHIVE

#define RTSPTAP_API __attribute__((visibility("hidden"))) // what embeds the archive exports nothing of it

#pragma redefine_extname ThreadCreate rtsptap_ThreadCreate
#pragma redefine_extname ThreadExit rtsptap_ThreadExit
#pragma redefine_extname ThreadDetach rtsptap_ThreadDetach
#pragma redefine_extname WaitForThreadCompletion rtsptap_WaitForThreadCompletion
#pragma redefine_extname HandleSignal rtsptap_HandleSignal
#pragma redefine_extname GetTimeValue rtsptap_GetTimeValue
#pragma redefine_extname GetPresentTimeInSec rtsptap_GetPresentTimeInSec
#pragma redefine_extname MutexInit rtsptap_MutexInit
#pragma redefine_extname MutexLock rtsptap_MutexLock
#pragma redefine_extname MutexUnlock rtsptap_MutexUnlock
#pragma redefine_extname MutexDestroy rtsptap_MutexDestroy
#pragma redefine_extname InitConditionVar rtsptap_InitConditionVar
#pragma redefine_extname SignalOnConditionVar rtsptap_SignalOnConditionVar
#pragma redefine_extname WaitForConditionVar rtsptap_WaitForConditionVar
#pragma redefine_extname DestroyConditionVar rtsptap_DestroyConditionVar
#pragma redefine_extname MSecDelay rtsptap_MSecDelay
#pragma redefine_extname UDPSockRecv rtsptap_UDPSockRecv
#pragma redefine_extname TCPSockRecv rtsptap_TCPSockRecv
#pragma redefine_extname CloseSock rtsptap_CloseSock
#pragma redefine_extname CloseServerSock rtsptap_CloseServerSock
#pragma redefine_extname Base64Encode rtsptap_Base64Encode

// Stands behind the function's definition, in the same file.
#define RTSPTAP_WEAK_NAME(name)                                                                                    \
    extern "C" RTSPTAP_API __attribute__((weak, alias("rtsptap_" #name)))                                          \
    RTSPTAP_LIKE(name) decltype(name) weak##name __asm__(#name);
#if __has_attribute(copy)
#define RTSPTAP_LIKE(name) __attribute__((copy(name)))
#else
#define RTSPTAP_LIKE(name)
#endif

#else
#define RTSPTAP_WEAK_NAME(name)
#endif
