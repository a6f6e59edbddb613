/**
 * @file zxstr.h
 * Bounded copies, tokenisers, splitters, URLs and small edits of texts.
 *
 * Texts end with a NUL and belong to the caller; nothing is allocated. Where an
 * output has a size, it counts the NUL, and an output whose size is 0 or less is
 * not written. Where it has none, the caller makes it large enough, as each
 * function says. Outputs and inputs must not overlap unless said otherwise. Log
 * tag: STRING.
 *
 * A NULL argument is ignored without a log line, unless said otherwise: nothing
 * is touched, and the result is 0 or what the function was given to return.
 *
 * Threads: safe. Signal handlers: safe, but for zxstr_api_lcatf() and the two
 * builders of numbered URLs.
 */
#ifndef ZXSTR_H
#define ZXSTR_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#if defined(__GNUC__)
/** Has compilers check a printf format, argument `fmt`, against the arguments from `args` on. */
#define ZXSTR_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define ZXSTR_PRINTF(fmt, args)
#endif

#define ZXSTR_URL_SIZE 1025 /**< bytes that zxstr_api_getUrlRealPath() writes at most */
#define ZXSTR_KEY_SIZE 128  /**< bytes of a query key that count, the NUL included */

/* --------------------------------------------------- copying, appending -- */

/**
 * Copies a text, cut to the room that there is, and ends it with a NUL.
 * @param dst   `size` bytes; may be NULL when `size` is 0.
 * @param src   the text.
 * @param size  bytes in `dst`; 0 writes nothing.
 * @return strlen(src): the text was cut when this is `size` or more.
 */
uint64_t zxstr_api_lcpy(char* dst, const char* src, uint64_t size);

/**
 * Appends a text, cut to the room that there is, and ends it with a NUL.
 *
 * With no room for a character, that is with a `size` of strlen(dst) + 1 or less, nothing is
 * written.
 *
 * @param dst   a text, in `size` bytes.
 * @param src   the text to append.
 * @param size  bytes in `dst`.
 * @return strlen(dst) as it was + strlen(src), whatever the size: the text was cut when this is
 *         `size` or more.
 */
uint64_t zxstr_api_lcat(char* dst, const char* src, uint64_t size);

/**
 * Appends a printed text, cut to the room that there is.
 * @param dst   a text, in `size` bytes.
 * @param size  bytes in `dst`; strlen(dst) or less writes nothing.
 * @param fmt   a printf format, the caller's own text and never one from outside.
 * @return strlen(dst) as it was + the length of the printed text, cut or not.
 */
int32_t zxstr_api_lcatf(char* dst, uint64_t size, const char* fmt, ...) ZXSTR_PRINTF(3, 4);

/* ---------------------------------------------------------- tokenisers -- */
/*
 * A cursor points to the rest of a text. Each call takes one piece off its
 * front. Characters that do not fit `buf` are dropped with the piece; a NULL
 * `buf` or a size of 0 or less drops all of them. When the text is at its end,
 * the piece is empty.
 */

/**
 * Takes one line, without its end: skips line feeds, stops at the next or at the end.
 * @param buf     gets the line, `size` bytes.
 * @param size    bytes in `buf`.
 * @param cursor  left on the character that stopped.
 * @return `cursor`.
 */
char** zxstr_api_getLine(char* buf, int32_t size, char** cursor);

/**
 * As zxstr_api_getLine(), but a carriage return stops too. The cursor then rests on it, and the
 * next call gives an empty line without moving: step over it first.
 * @param buf     gets the piece, `size` bytes.
 * @param size    bytes in `buf`.
 * @param cursor  left on the character that stopped.
 * @return `cursor`.
 */
char** zxstr_api_getLine2(char* buf, int32_t size, char** cursor);

/**
 * As zxstr_api_getLine(), but the line keeps the character that stopped, and the cursor is left one
 * past it.
 *
 * At most `size` - 2 characters are kept in front of it; a size of 1 has no room for it.
 *
 * At the end of the text the character that stopped is its NUL and the cursor is left behind the
 * text: a line without a line feed at its end is the last one, and the cursor is not to be used
 * again.
 *
 * @param buf     gets the piece, `size` bytes.
 * @param size    bytes in `buf`.
 * @param cursor  left behind the character that stopped.
 * @return `cursor`.
 */
char** zxstr_api_getLine3(char* buf, int32_t size, char** cursor);

/**
 * Takes one word: skips blanks, tabs, carriage returns and line feeds, stops at any
 * zxstr_api_isSpace() or at the end. A form feed or vertical tab in front is not skipped: it gives
 * an empty word without moving. Otherwise as zxstr_api_getLine().
 *
 * @param buf     gets the piece, `size` bytes.
 * @param size    bytes in `buf`.
 * @param cursor  left on the character that stopped.
 * @return `cursor`.
 */
char** zxstr_api_getWord(char* buf, int32_t size, char** cursor);

/**
 * @param c  the character.
 * @return 1 for blank, tab, line feed, vertical tab, form feed, carriage return; otherwise 0.
 */
int32_t zxstr_api_isSpace(char c);

/* -------------------------------------------------------------- search -- */

/**
 * Tells whether a text contains another, letter case respected, as the logging library's
 * zxlog_api_strCasestrNum() counts it.
 * @param haystack  searched.
 * @param needle    looked for.
 * @return 1 or 0; 0 for an empty `needle`.
 */
int32_t zxstr_api_isCasestr(const char* haystack, const char* needle);

/**
 * As zxstr_api_isCasestr(), but ASCII letters match in either case.
 * @param haystack  searched.
 * @param needle    looked for.
 * @return 1 or 0; 0 for an empty `needle`.
 */
int32_t zxstr_api_isCasestr_IgnoreLetterCase(const char* haystack, const char* needle);

/**
 * Copies a text and replaces all occurrences of another in it, from left to right and without
 * looking at the replacement again.
 *
 * @param src   the text.
 * @param old   replaced; empty: nothing is.
 * @param with  put in its place.
 * @param dst   strlen(src) + 1 bytes, and for each occurrence what `with` is longer than `old`.
 * @return `dst`.
 */
char* zxstr_api_replace(const char* src, const char* old, const char* with, char* dst);

/* ------------------------------------------------------------ splitting -- */

/**
 * Splits a text at any of some characters. Empty fields are skipped.
 * @param s       cut into its fields.
 * @param delims  the characters.
 * @param out     gets the fields: (strlen(s) + 1) / 2 entries at most.
 * @return the number of fields; 0 when an argument is missing.
 */
int32_t zxstr_api_split(char* s, const char* delims, char** out);

/**
 * Splits a text at a separator. Empty fields are kept, but for the last one: a field at the end
 * that is shorter than the separator is dropped, so that "a::b" at "::" gives "a" alone.
 *
 * @param s    cut into its fields.
 * @param sep  the separator.
 * @param out  gets the fields: strlen(s) / strlen(sep) entries at most.
 * @return the number of fields; 0 when an argument is missing or empty, or `s` is shorter than
 *         `sep`.
 */
int32_t zxstr_api_split2(char* s, const char* sep, char** out);

/* ----------------------------------------------------------------- URLs -- */

/**
 * Splits "proto://auth@host:port/path?query". A URL without ":" is all path.
 *
 * The authority ends at the first "/"; only when there is none does a "?" end it. Its first "@"
 * ends `auth`. Without slashes, the text before the first ":" is still taken for the scheme:
 * "host:80" gives proto "host" and host "80".
 *
 * @param proto, protoSize  the scheme without "://".
 * @param auth, authSize    the text before "@".
 * @param host, hostSize    the name or address, without the brackets of an IPv6 address.
 * @param port              the port as atoi() reads it; -1 when there is none.
 * @param path, pathSize    the rest with its leading "/" or "?".
 * @param isBracketHost     1 for a host in brackets, otherwise 0; untouched when the URL has no ":"
 *                          or nothing between the scheme and the path.
 * @param url               the URL; NULL gives empty parts.
 *
 * Sizes are in bytes; each text is cut to them. An output that is NULL is left out.
 */
void zxstr_api_urlSplit(char* proto, int protoSize, char* auth, int authSize, char* host,
                        int hostSize, int* port, char* path, int pathSize, uint8_t* isBracketHost,
                        const char* url);

/**
 * Copies a URL without its query: the text before the first "?".
 *
 * A "?" in front is skipped when another one follows, "?a=1?b" gives "a=1", and stays otherwise,
 * "?a=1" gives "?a=1". Only the first 1024 bytes of a URL are looked at.
 *
 * @param url  the URL.
 * @param out  #ZXSTR_URL_SIZE bytes; strlen(url) + 1 are enough for a shorter URL, but 8 are zeroed
 *             at least. May be `url`.
 * @return `out`.
 *
 * Logs: warning for a URL of 1024 bytes or more.
 */
char* zxstr_api_getUrlRealPath(const char* url, char* out);

/**
 * Builds the URLs of the numbered pieces of a stream.
 *
 * Each is proto "://", "@" auth "@", host, and then ":" port + i when there is no `path`.
 * Otherwise ":" port follows (when it is above 0) and "/" path "_007" (the index, in three digits
 * at least). A `path` with "m3u8" in it is appended as it is, without a "/", and "_007.m3u8" is
 * written strlen(path) - 5 characters from the beginning of the whole entry: that replaces ".m3u8"
 * when the path stands alone, and cuts the URL short when something stands before it.
 *
 * @param proto, auth, host, path  NULL or empty: left out. Each is cut to what 1023 bytes hold
 *                                 together with its punctuation.
 * @param port    the port.
 * @param count   number of entries.
 * @param stride  bytes in an entry; a longer URL is cut. 0 or less: nothing is done.
 * @param base    the first entry. URLs are appended: zero the entries before.
 *
 * Logs: information, each entry.
 */
void zxstr_api_buildListurl(const char* proto, const char* auth, const char* host, int port,
                            const char* path, int count, int stride, char* base);

/**
 * Builds one URL for a range of numbered pieces, "[5000:5002]" or "_[000:002]" in the place where
 * zxstr_api_buildListurl() has the number.
 *
 * @param proto, auth, host, port, path  as for zxstr_api_buildListurl().
 * @param count  number of pieces.
 * @param out    a text, to which the URL is appended. The index of a "m3u8" `path` is written
 *               strlen(path) - 5 characters from its beginning. 64 bytes more than all texts
 *               together are enough.
 */
void zxstr_api_buildListurl2(const char* proto, const char* auth, const char* host, int port,
                             const char* path, int count, char* out);

/**
 * Looks a key up in "a=1&b=2". The first pair with the key counts; one leading "?" is skipped.
 *
 * Keys are compared by their first 127 characters, letter case respected.
 *
 * @param value      gets the value, with a blank for each "+" and "%xx" as it is; empty for a key
 *                   without "=". When the key is not found, it holds the last pair's value. NULL:
 *                   not wanted.
 * @param valueSize  bytes in `value`; a longer value is cut.
 * @param name       the key.
 * @param query      the text.
 * @return 1 when the key is there; otherwise 0.
 */
int32_t zxstr_api_findTag(char* value, uint32_t valueSize, const char* name, const char* query);

/* --------------------------------------------------------------- letters -- */

/**
 * Copies a text with 'a' to 'x' turned into capitals; 'y' and 'z' stay as they are.
 * @param src  the text.
 * @param dst  strlen(src) bytes: no NUL is written. May be `src`.
 * @return strlen(src).
 */
uint32_t zxstr_api_outULetters(const char* src, char* dst);

/**
 * As zxstr_api_outULetters(), with 'A' to 'X' turned into small letters; 'Y' and 'Z' stay.
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
