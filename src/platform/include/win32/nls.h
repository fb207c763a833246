// National language support: code pages and their conversions, the multibyte string functions of the runtime
// library, message formatting with inserts, and the few locale texts that are used.
//
// The ANSI code page of a process is read from the machine's registry at first use and never changes after
// that. Every function here may be called from any thread at any time, unless its comment says otherwise; the
// text it works on is the caller's to protect.
#pragma once

#include "win32/types.h"

// ---- Code pages ----

inline constexpr UINT CP_ACP = 0;         // the process's ANSI code page
inline constexpr UINT CP_OEMCP = 1;       // the same page here: there is no console with another one
inline constexpr UINT CP_THREAD_ACP = 3;  // the same page here: no thread has another one
inline constexpr UINT CP_UTF8 = 65001;

inline constexpr DWORD MB_PRECOMPOSED = 0x01;         // accepted; the only form the tables know
inline constexpr DWORD MB_ERR_INVALID_CHARS = 0x08;   // fail with 1113 on bytes that mean nothing
inline constexpr DWORD WC_ERR_INVALID_CHARS = 0x80;   // UTF-8 only: fail with 1113 on a lone surrogate
inline constexpr DWORD WC_NO_BEST_FIT_CHARS = 0x400;  // accepted; no approximate mapping is ever made

inline constexpr UINT MAX_DEFAULTCHAR = 2;
inline constexpr UINT MAX_LEADBYTES = 12;

struct CPINFO {
  UINT MaxCharSize;  // longest character in bytes
  BYTE DefaultChar[MAX_DEFAULTCHAR];
  BYTE LeadByte[MAX_LEADBYTES];  // pairs of first and last lead byte, ended by two zeros
};

extern "C" {

// The ANSI code page of the process: 1250 to 1258, 874, 932, 936, 949, 950 or 65001. It comes from the string
// value "ACP" of "SYSTEM\CurrentControlSet\Control\Nls\CodePage" under the local machine; 1252 when that is
// absent or names no supported page.
ORM_PLATFORM_API UINT WINAPI GetACP();

// Whether `codePage` is one of the pages that GetACP lists. 1200 (UTF-16) is not: it is no multibyte page.
ORM_PLATFORM_API BOOL WINAPI IsValidCodePage(UINT codePage);

// Whether `byte` begins a double-byte character in the ANSI code page; never so in UTF-8.
ORM_PLATFORM_API BOOL WINAPI IsDBCSLeadByte(BYTE byte);

// The same for a code page of the caller's choice; false and 87 when there is no such page.
ORM_PLATFORM_API BOOL WINAPI IsDBCSLeadByteEx(UINT codePage, BYTE byte);

// Describes a code page. Error 87: no such page, or a null `info`.
ORM_PLATFORM_API BOOL WINAPI GetCPInfo(UINT codePage, CPINFO* info);

// Converts `size` bytes (-1: up to and including the terminator) to UTF-16. Returns the number of units
// written, or needed when `wideSize` is 0. Bytes that mean nothing become U+FFFD in UTF-8, "?" or the page's
// own default elsewhere, or fail with 1113 under MB_ERR_INVALID_CHARS. Returns 0 on failure: 87 bad page,
// null text, size 0 or the buffers are one; 122 buffer too small; 1004 flags; 1113; 8 out of memory.
ORM_PLATFORM_API int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int size,
                                                LPWSTR wide, int wideSize);

// Converts `wideSize` UTF-16 units (-1: up to and including the terminator) to a code page. Returns the
// number of bytes written, or needed when `size` is 0. A character that the page lacks becomes `*defaultChar`
// (null: "?") and sets `*usedDefaultChar` (may be null). In UTF-8 both must be null, and a lone surrogate
// becomes U+FFFD. Returns 0 on failure: 87, 122, 1004, 1113 and 8 as above.
ORM_PLATFORM_API int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int wideSize,
                                                LPSTR text, int size, LPCSTR defaultChar,
                                                BOOL* usedDefaultChar);

// ---- Multibyte strings ----

// All in the ANSI code page of the process. A character is one byte in a single-byte page; one byte, or a
// lead byte and any byte but the terminator after it, in a double-byte page; a well-formed sequence of one to
// four bytes in UTF-8, where a byte that belongs to none is a character by itself. The code of a character is
// its bytes read as one big-endian number. Letter case follows Unicode's simple mappings, as far as the page
// has both letters and they take the same number of bytes. No pointer may be null; nothing here fails or sets
// an error.

ORM_PLATFORM_API size_t _mbclen(const unsigned char* character);  // bytes; 1 for the terminator
ORM_PLATFORM_API size_t _mbslen(const unsigned char* text);       // characters
ORM_PLATFORM_API size_t _mbsnbcnt(const unsigned char* text,
                                  size_t characters);  // bytes of the first characters
ORM_PLATFORM_API size_t _mbsnccnt(const unsigned char* text,
                                  size_t bytes);                        // characters begun in the first bytes
ORM_PLATFORM_API unsigned int _mbsnextc(const unsigned char* text);     // code of the first character
ORM_PLATFORM_API unsigned char* _mbsinc(const unsigned char* current);  // the next character
ORM_PLATFORM_API unsigned char* _mbsninc(const unsigned char* text, size_t count);  // not past the terminator
// The character before `current` in the text that begins at `start`; null when there is none.
ORM_PLATFORM_API unsigned char* _mbsdec(const unsigned char* start, const unsigned char* current);

// Comparisons: negative, 0 or positive, by character codes. `count` is in characters; `bytes` in bytes.
ORM_PLATFORM_API int _mbscmp(const unsigned char* left, const unsigned char* right);
ORM_PLATFORM_API int _mbsicmp(const unsigned char* left, const unsigned char* right);
ORM_PLATFORM_API int _mbsncmp(const unsigned char* left, const unsigned char* right, size_t count);
ORM_PLATFORM_API int _mbsnicmp(const unsigned char* left, const unsigned char* right, size_t count);
ORM_PLATFORM_API int _mbsnbcmp(const unsigned char* left, const unsigned char* right, size_t bytes);
ORM_PLATFORM_API int _mbsnbicmp(const unsigned char* left, const unsigned char* right, size_t bytes);

// Spans: the number of bytes of the longest start made of characters in (not in) `set`.
ORM_PLATFORM_API size_t _mbsspn(const unsigned char* text, const unsigned char* set);
ORM_PLATFORM_API size_t _mbscspn(const unsigned char* text, const unsigned char* set);

// Searches: the first (last) place, or null. `code` as _mbsnextc gives it; 0 finds the terminator.
ORM_PLATFORM_API unsigned char* _mbschr(const unsigned char* text, unsigned int code);
ORM_PLATFORM_API unsigned char* _mbsrchr(const unsigned char* text, unsigned int code);
ORM_PLATFORM_API unsigned char* _mbsstr(const unsigned char* text, const unsigned char* part);
ORM_PLATFORM_API unsigned char* _mbspbrk(const unsigned char* text, const unsigned char* set);
ORM_PLATFORM_API unsigned char* _mbsspnp(const unsigned char* text,
                                         const unsigned char* set);  // first not in set

// Letter case, in place; the text keeps its length.
ORM_PLATFORM_API unsigned char* _mbslwr(unsigned char* text);
ORM_PLATFORM_API unsigned char* _mbsupr(unsigned char* text);
ORM_PLATFORM_API unsigned int _mbctolower(unsigned int code);
ORM_PLATFORM_API unsigned int _mbctoupper(unsigned int code);

// Copies. The counted ones fill the rest with zeros and write no terminator when there is no room for it; by
// bytes, half a character at the end becomes a zero.
ORM_PLATFORM_API unsigned char* _mbscpy(unsigned char* destination, const unsigned char* source);
ORM_PLATFORM_API unsigned char* _mbscat(unsigned char* destination, const unsigned char* source);
ORM_PLATFORM_API unsigned char* _mbsncpy(unsigned char* destination, const unsigned char* source,
                                         size_t count);
ORM_PLATFORM_API unsigned char* _mbsnbcpy(unsigned char* destination, const unsigned char* source,
                                          size_t bytes);

ORM_PLATFORM_API int _ismbblead(unsigned int byte);   // can begin a double-byte character
ORM_PLATFORM_API int _ismbbtrail(unsigned int byte);  // can end one
// Whether the byte at `current` is the lead (trail) byte of a character of the text that begins at `start`:
// -1 or 0.
ORM_PLATFORM_API int _ismbslead(const unsigned char* start, const unsigned char* current);
ORM_PLATFORM_API int _ismbstrail(const unsigned char* start, const unsigned char* current);

// printf-style formatting into `count` bytes. Returns the length of the text; -1 when it is longer than
// `count`, which then are filled without a terminator. A text of exactly `count` bytes is written without
// terminator and is no failure.
ORM_PLATFORM_API int _vsnprintf(char* buffer, size_t count, const char* format, va_list arguments);
ORM_PLATFORM_API int _snprintf(char* buffer, size_t count, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// ---- Messages ----

}  // extern "C"

using HLOCAL = HANDLE;

inline constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x100;
inline constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x200;
inline constexpr DWORD FORMAT_MESSAGE_FROM_STRING = 0x400;
inline constexpr DWORD FORMAT_MESSAGE_FROM_HMODULE = 0x800;
inline constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;
inline constexpr DWORD FORMAT_MESSAGE_ARGUMENT_ARRAY = 0x2000;
inline constexpr DWORD FORMAT_MESSAGE_MAX_WIDTH_MASK = 0xFF;

extern "C" {

// Formats a message text with inserts.
//   - `flags` says where the text comes from (FROM_STRING: `source`, FROM_SYSTEM: the system's text for
//     `messageId`; no module here holds message tables, so FROM_HMODULE finds nothing by itself), how
//     arguments are passed, and in its low byte the line width: 0 keeps the line breaks of the text, each as
//     "\r\n"; 0xFF turns each into a blank, also the one that ends every system message; any other width
//     also breaks lines at blanks so that none is longer, words being kept whole.
//   - `language` is 0 or English; any other has no system messages (1815).
//   - `buffer` of `size` characters receives the text, terminated.
//     Under ALLOCATE_BUFFER it is the address of a pointer that receives a buffer for LocalFree, of `size`
//     characters at least and 65,536 at most.
//   - `arguments` is null;
//     or the address of a started va_list, which is read through a copy and so stays where it is;
//     or under ARGUMENT_ARRAY, cast, an array of DWORD_PTR.
//     A `va_list` that is itself a function's parameter has decayed to a pointer: pass
//     reinterpret_cast<va_list*>(parameter).
//
// Syntax of the text:
//   - %1 to %99: that insert as text; %1!format!: that insert in a printf format of flags "-+ #0", width and
//     precision (numbers, or * for an argument; no width and no number's precision beyond 65,536), size h, l,
//     w, I, I32, I64 or ll, and one of c C s S d i u x X o p. Numbers are 32 bits wide unless I, I64 or ll
//     says otherwise; s and c are of the function's own width, S and C of the other one, h makes both 8-bit,
//     l and w 16-bit.
//   - %0 ends the text without a final line break.
//   - %n is a line break that is always kept, %r a carriage return, %t a tab, %b a blank; % before any other
//     character gives that character: "%%", "%!", "%.", "% ".
// The first * takes the insert's own argument, a second one the argument after it. The value is then, in an
// array, the argument that follows these; in a va_list the next one that was not read yet, and it has no
// number.
//
// Returns the length of the text without its terminator, or 0 on failure; an empty text also returns 0, and
// then the last error is 0. Errors: 122 the buffer is too small, or more than 65,535 characters would have to
// be allocated; 87 malformed text or no arguments; 317 no such message; 1813 and 1815 as above; 8 out of
// memory.
ORM_PLATFORM_API DWORD WINAPI FormatMessageA(DWORD flags, LPCVOID source, DWORD messageId, DWORD language,
                                             LPSTR buffer, DWORD size, va_list* arguments);
ORM_PLATFORM_API DWORD WINAPI FormatMessageW(DWORD flags, LPCVOID source, DWORD messageId, DWORD language,
                                             LPWSTR buffer, DWORD size, va_list* arguments);

// Wipes and frees a buffer that FormatMessage allocated; null is left alone. Returns null.
ORM_PLATFORM_API HLOCAL WINAPI LocalFree(HLOCAL memory);

// ---- Locale texts ----

}  // extern "C"

// The system's locale is US English; LOCALE_SYSTEM_DEFAULT, LOCALE_USER_DEFAULT and 0x409 name it.
inline constexpr LCID LOCALE_SYSTEM_DEFAULT = 0x0800;
inline constexpr LCID LOCALE_USER_DEFAULT = 0x0400;
inline constexpr LCID LOCALE_INVARIANT = 0x007F;

inline constexpr DWORD TIME_NOMINUTESORSECONDS = 0x1;
inline constexpr DWORD TIME_NOSECONDS = 0x2;
inline constexpr DWORD TIME_NOTIMEMARKER = 0x4;
inline constexpr DWORD TIME_FORCE24HOURFORMAT = 0x8;
inline constexpr DWORD DATE_SHORTDATE = 0x1;
inline constexpr DWORD DATE_LONGDATE = 0x2;
inline constexpr DWORD DATE_YEARMONTH = 0x8;

extern "C" {

// The system's default locale, 0x409.
ORM_PLATFORM_API LCID WINAPI GetSystemDefaultLCID();

// The time of day of `time` (null: now) as text, "5:07:09 PM", or by a picture of h, hh, H, HH, m, mm, s, ss,
// t, tt and 'quoted text'. Returns the length with its terminator, or the length needed when `size` is 0.
// Returns 0 on failure: 87 bad locale, time or argument; 122 buffer too small; 1004 flags together with a
// picture.
ORM_PLATFORM_API int WINAPI GetTimeFormatA(LCID locale, DWORD flags, const SYSTEMTIME* time, LPCSTR format,
                                           LPSTR buffer, int size);

// The date of `time` (null: today), "11/24/2026" or with DATE_LONGDATE "Tuesday, November 24, 2026", or by a
// picture of d to dddd, M to MMMM, y, yy, yyyy and 'quoted text'. The day of the week is computed. Results as
// GetTimeFormatA.
ORM_PLATFORM_API int WINAPI GetDateFormatA(LCID locale, DWORD flags, const SYSTEMTIME* time, LPCSTR format,
                                           LPSTR buffer, int size);

}  // extern "C"
