/**
 * @file zxstr.h
 * Bounded copies, tokenisers, splitters, URLs and small changes of texts.
 *
 * Texts end with a NUL and belong to the caller; nothing is allocated. The size of an output
 * includes the NUL, and an output whose size is 0 or less is not written. Where an output has no
 * size argument, the function says how large it must be. Outputs and inputs must not overlap,
 * except where a function allows it. Log tag: STRING.
 *
 * Unless a function says otherwise, a NULL argument is ignored without a log line: nothing is
 * changed, and the result is 0 or the argument that the function returns.
 *
 * Threads: safe; for different texts.
 * Signal handlers: safe.
 * Cancellation: none.
 */
#ifndef ZXSTR_H
#define ZXSTR_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#if defined(__GNUC__)
/** Lets the compiler check the printf format `fmt` against the arguments from number `args` on. */
#define ZXSTR_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define ZXSTR_PRINTF(fmt, args)
#endif

#define ZXSTR_URL_SIZE 1025 /**< most bytes that zxstr_api_getUrlRealPath() writes */
#define ZXSTR_KEY_SIZE 128  /**< bytes of a query key that are compared, and a NUL */

/* --------------------------------------------------- copying, appending -- */

/**
 * Copies a text, cut to the size of the output, and ends it with a NUL.
 * @param dst   `size` bytes; may be NULL when `size` is 0.
 * @param src   the text.
 * @param size  bytes in `dst`; 0: nothing is written.
 * @return strlen(src): the text was cut when this is `size` or more.
 */
uint64_t zxstr_api_lcpy(char* dst, const char* src, uint64_t size);

/**
 * Appends a text, cut to the size of the output, and ends it with a NUL.
 *
 * If there is no room for a character (`size` is strlen(dst) + 1 or less), nothing is written.
 *
 * @param dst   a text, in `size` bytes.
 * @param src   the text to append.
 * @param size  bytes in `dst`.
 * @return the former strlen(dst) + strlen(src), for any size: the text was cut when this is `size`
 *         or more.
 */
uint64_t zxstr_api_lcat(char* dst, const char* src, uint64_t size);

/**
 * Formats a text as printf() does and appends it, cut to the size of the output.
 * @param dst   a text, in `size` bytes.
 * @param size  bytes in `dst`; if this is strlen(dst) or less, nothing is written.
 * @param fmt   a printf format; the caller's own text, never text from outside.
 * @return the former strlen(dst) + the full length of the formatted text, even if it was cut.
 * Signal handlers: unsafe.
 */
int32_t zxstr_api_lcatf(char* dst, uint64_t size, const char* fmt, ...) ZXSTR_PRINTF(3, 4);

/* ---------------------------------------------------------- tokenisers -- */
/*
 * A cursor points to the rest of a text. Each call takes one piece from its front. The cursor moves
 * past the whole piece. Characters that do not fit in `buf` are lost; with a NULL `buf` or a size
 * of 0 or less, all of them are lost. At the end of the text, the piece is empty.
 */

/**
 * Takes one line without its end: skips line feeds, and stops at the next line feed or at the end.
 * @param buf     receives the line, `size` bytes.
 * @param size    bytes in `buf`.
 * @param cursor  left on the character that stopped the line.
 * @return `cursor`.
 */
char** zxstr_api_getLine(char* buf, int32_t size, char** cursor);

/**
 * Does the same as zxstr_api_getLine(), but a carriage return also stops the line. The cursor then
 * stays on it, and the next call gives an empty line without moving: step over it first.
 *
 * @param buf     receives the line, `size` bytes.
 * @param size    bytes in `buf`.
 * @param cursor  left on the character that stopped the line.
 * @return `cursor`.
 */
char** zxstr_api_getLine2(char* buf, int32_t size, char** cursor);

/**
 * Does the same as zxstr_api_getLine(), but the line keeps the character that stopped it, and the
 * cursor moves past that character.
 *
 * At most `size` - 2 other characters are kept, so that the one that stopped the line fits. With a
 * size of 1, it does not fit.
 *
 * At the end of the text, the character that stopped the line is the NUL, and the cursor moves past
 * it, out of the text. So a line without a line feed is the last one: do not use the cursor again.
 *
 * @param buf     receives the line, `size` bytes.
 * @param size    bytes in `buf`.
 * @param cursor  moved past the character that stopped the line.
 * @return `cursor`.
 */
char** zxstr_api_getLine3(char* buf, int32_t size, char** cursor);

/**
 * Takes one word: skips blanks, tabs, carriage returns and line feeds, and stops at any white space
 * (zxstr_api_isSpace()) or at the end. A form feed or vertical tab at the front is not skipped: it
 * gives an empty word without moving. Otherwise works as zxstr_api_getLine().
 *
 * @param buf     receives the word, `size` bytes.
 * @param size    bytes in `buf`.
 * @param cursor  left on the character that stopped the word.
 * @return `cursor`.
 */
char** zxstr_api_getWord(char* buf, int32_t size, char** cursor);

/**
 * Tells whether a character is white space.
 * @param c  the character.
 * @return 1 for blank, tab, line feed, vertical tab, form feed and carriage return; otherwise 0.
 */
int32_t zxstr_api_isSpace(char c);

/* -------------------------------------------------------------- search -- */

/**
 * Tells whether a text contains another one in the same letter case, as zxlog_api_strCasestrNum()
 * finds it.
 * @param haystack  the text to search.
 * @param needle    the text to look for.
 * @return 1 or 0; 0 for an empty `needle`.
 */
int32_t zxstr_api_isCasestr(const char* haystack, const char* needle);

/**
 * Does the same as zxstr_api_isCasestr(), but ASCII letters match in either case.
 * @param haystack  the text to search.
 * @param needle    the text to look for.
 * @return 1 or 0; 0 for an empty `needle`.
 */
int32_t zxstr_api_isCasestr_IgnoreLetterCase(const char* haystack, const char* needle);

/**
 * Copies a text and replaces all occurrences of another text in it, from left to right.
 * Replacements are not searched again.
 *
 * @param src   the text.
 * @param old   the text to replace; empty: nothing is replaced.
 * @param with  the replacement.
 * @param dst   strlen(src) + 1 bytes. If `with` is longer than `old`, add the difference for each
 *              occurrence.
 * @return `dst`.
 */
char* zxstr_api_replace(const char* src, const char* old, const char* with, char* dst);

/* ------------------------------------------------------------ splitting -- */

/**
 * Splits a text at each of the given characters. Empty fields are skipped.
 * @param s       the text. It is changed: a NUL is written at the end of each field.
 * @param delims  the characters.
 * @param out     receives the fields: at most (strlen(s) + 1) / 2 entries.
 * @return the number of fields; 0 when an argument is NULL.
 */
int32_t zxstr_api_split(char* s, const char* delims, char** out);

/**
 * Splits a text at a separator. Empty fields are kept. A last field that is shorter than the
 * separator is dropped, even if it is not empty: "a::b" at "::" gives only "a".
 *
 * @param s    the text. It is changed: a NUL is written at the end of each field.
 * @param sep  the separator.
 * @param out  receives the fields: at most strlen(s) / strlen(sep) entries.
 * @return the number of fields; 0 when an argument is NULL or empty, or when `s` is shorter than
 *         `sep`.
 */
int32_t zxstr_api_split2(char* s, const char* sep, char** out);

/* ----------------------------------------------------------------- URLs -- */

/**
 * Splits "proto://auth@host:port/path?query". A URL without ":" is all path.
 *
 * The authority ends at the first "/", or at the first "?" if there is no "/". Its first "@" ends
 * `auth`. Without slashes, the text before the first ":" still counts as the scheme: "host:80"
 * gives proto "host" and host "80".
 *
 * Sizes are in bytes; each text is cut to its size. An output that is NULL is omitted.
 *
 * @param proto, protoSize  the scheme without "://".
 * @param auth, authSize    the text before "@".
 * @param host, hostSize    the name or address, without the brackets of an IPv6 address.
 * @param port              the port as atoi() reads it; -1 when there is none.
 * @param path, pathSize    the rest with its leading "/" or "?".
 * @param isBracketHost     1 for a host in brackets, otherwise 0; not written when the URL has no
 *                          ":" or nothing between the scheme and the path.
 * @param url               the URL; NULL gives empty parts.
 */
void zxstr_api_urlSplit(char* proto, int protoSize, char* auth, int authSize, char* host,
                        int hostSize, int* port, char* path, int pathSize, uint8_t* isBracketHost,
                        const char* url);

/**
 * Copies a URL without its query: the text before the first "?".
 *
 * A "?" at the front is skipped if another one follows: "?a=1?b" gives "a=1". Otherwise it stays:
 * "?a=1" gives "?a=1". Only the first 1024 bytes of a URL are used.
 *
 * @param url  the URL.
 * @param out  #ZXSTR_URL_SIZE bytes; may be `url`. For a shorter URL, strlen(url) + 1 bytes are
 *             enough, but never fewer than 8, because the first 8 bytes are always written.
 * @return `out`.
 *
 * Logs: warning for a URL of 1024 bytes or more.
 */
char* zxstr_api_getUrlRealPath(const char* url, char* out);

/**
 * Builds the URLs of the numbered pieces of a stream.
 *
 * Each URL begins like "proto://@auth@host". Without a `path`, ":" and a number follow: `port` plus
 * the index of the entry. With a `path`, it continues like ":port/path_007": the port is omitted if
 * it is 0 or less, and 007 is the index, with at least three digits.
 *
 * A `path` that contains "m3u8" is appended without a "/". Then "_007.m3u8" is written over the
 * entry, strlen(path) - 5 characters from its beginning. That replaces ".m3u8" if the path stands
 * alone, and cuts the URL short if something stands before it.
 *
 * @param proto, auth, host, path  NULL or empty: omitted. Each is cut to 1023 bytes, including
 *                                 its punctuation.
 * @param port                     the port.
 * @param count                    number of entries.
 * @param stride                   bytes in an entry; a longer URL is cut. 0 or less: nothing is
 *                                 done.
 * @param base                     the first entry. URLs are appended: zero the entries first.
 *
 * Signal handlers: unsafe.
 * Logs: information, each entry.
 */
void zxstr_api_buildListurl(const char* proto, const char* auth, const char* host, int port,
                            const char* path, int count, int stride, char* base);

/**
 * Builds one URL for a range of numbered pieces: "[5000:5002]" or "_[000:002]" stands where
 * zxstr_api_buildListurl() puts the number.
 *
 * @param proto, auth, host, port, path  as for zxstr_api_buildListurl().
 * @param count                          number of pieces.
 * @param out                            a text, to which the URL is appended. The index of a "m3u8"
 *                                       `path` is written strlen(path) - 5 characters from the
 *                                       beginning of `out`. Room for all texts and 64 more bytes is
 *                                       enough.
 *
 * Signal handlers: unsafe.
 */
void zxstr_api_buildListurl2(const char* proto, const char* auth, const char* host, int port,
                             const char* path, int count, char* out);

/**
 * Looks up a key in "a=1&b=2". The first pair with the key counts; one leading "?" is skipped.
 *
 * Only the first 127 characters of keys are compared, in the same letter case.
 *
 * @param value      receives the value; empty for a key without "=". Each "+" becomes a blank, but
 *                   "%xx" is not decoded. If the key is not found, it receives the value of the
 *                   last pair. NULL: not wanted.
 * @param valueSize  bytes in `value`; a longer value is cut.
 * @param name       the key.
 * @param query      the text.
 * @return 1 when the key is there; otherwise 0.
 */
int32_t zxstr_api_findTag(char* value, uint32_t valueSize, const char* name, const char* query);

/* --------------------------------------------------------------- letters -- */

/**
 * Copies a text and turns the letters from 'a' through 'x' into capitals; 'y' and 'z' stay as they
 * are.
 * @param src  the text.
 * @param dst  strlen(src) bytes: no NUL is written. May be `src`.
 * @return strlen(src).
 */
uint32_t zxstr_api_outULetters(const char* src, char* dst);

/**
 * Does the same as zxstr_api_outULetters(), but turns the letters from 'A' through 'X' into small
 * ones; 'Y' and 'Z' stay as they are.
 *
 * @param src  the text.
 * @param dst  strlen(src) bytes: no NUL is written. May be `src`.
 * @return strlen(src).
 */
uint32_t zxstr_api_outLLetters(const char* src, char* dst);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
