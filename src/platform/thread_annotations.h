/* SPDX-License-Identifier: MIT */
// Clang's thread-safety attributes. Other compilers see nothing of them.
#pragma once

#if defined(__clang__)
#define KEL_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define KEL_THREAD_ATTRIBUTE(x)
#endif

#define CAPABILITY(name) KEL_THREAD_ATTRIBUTE(capability(name))
#define SCOPED_CAPABILITY KEL_THREAD_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(lock) KEL_THREAD_ATTRIBUTE(guarded_by(lock))
#define PT_GUARDED_BY(lock) KEL_THREAD_ATTRIBUTE(pt_guarded_by(lock))
#define REQUIRES(...) KEL_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) KEL_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) KEL_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) KEL_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define RELEASE(...) KEL_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS KEL_THREAD_ATTRIBUTE(no_thread_safety_analysis)
