#pragma once

namespace test
{

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

/// How many of something a test makes: a tenth under a sanitizer, which is
/// slower by about as much.
constexpr int Scaled(int count)
{
    return kSanitized ? count / 10 : count;
}

} // namespace test
