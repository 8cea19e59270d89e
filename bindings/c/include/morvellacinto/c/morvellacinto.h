/* SPDX-License-Identifier: MIT */
#ifndef MORVELLACINTO_C_H
#define MORVELLACINTO_C_H

/** @file
 * The library on a Linux phone, for hosts in C and in all that can call C. Read
 * morvellacinto/audience/KRAudienceManager.h and morvellacinto/native/NativePlatform.h for what the
 * operations do; here stands how C reaches them.
 *
 * Every function may be called at any time with any arguments and gives an mvl_status; none throws.
 * A thread in a call must not be cancelled.
 * Texts are UTF-8 and end with a zero byte. Values are JSON texts. A text that is given out belongs
 * to the caller, who lets it go with mvl_free; a text that a callback gets lives until it returns.
 *
 * The thread that calls mvl_start is the main thread. Callbacks come there, from mvl_drain and
 * mvl_run, unless it is said otherwise.
 */

#include <stdint.h>

#if defined(__GNUC__)
#define MVL_API __attribute__((visibility("default")))
#else
#define MVL_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** What became of a call. */
typedef enum mvl_status {
    MVL_OK = 0,
    MVL_NOTHING = 1, /**< there is no such value */
    MVL_WRONG = 2,   /**< an argument, or a call at this moment, is wrong: mvl_error tells */
    MVL_FAILED = 3   /**< mvl_error tells what failed */
} mvl_status;

/** Why the last call on this thread that gave MVL_WRONG or MVL_FAILED did so: a sentence of up to
 * 511 bytes, cut there even within a character, that quotes what it was given, even if that is no
 * UTF-8. Valid until the next call on this thread. */
MVL_API const char* mvl_error(void);

/** Such as "1.0.0"; static. */
MVL_API const char* mvl_version(void);

/** A text that was given out; null is let go of, too. */
MVL_API void mvl_free(char* text);

/**
 * A function of the host's and what it works with. `call` may be null for a host that does not want
 * to be called. `release`, unless null, is called once with `user` when the library lets go of it,
 * whatever the function that took it gives: on the main thread; by a call that is wrong or that
 * has nobody to call, on the thread of that call; after a shutdown on any.
 */
typedef struct mvl_text_callback {
    void (*call)(void* user, const char* text);
    void* user;
    void (*release)(void* user);
} mvl_text_callback;

/** `answer` is a JSON object and `error` null, or `answer` null and `error` the object
 * {"domain": text, "code": number, "userInfo": object}. */
typedef struct mvl_completion {
    void (*call)(void* user, const char* answer, const char* error);
    void* user;
    void (*release)(void* user);
} mvl_completion;

/* The platform */

/**
 * Makes the platform and installs it, once in a process. `options`: null, or a JSON object with any
 * of NativeOptions' "bundleIdentifier", "dataDirectory", "trustAnchors" (an array of paths),
 * "locationTimeout" (seconds), "proxy", "defaultServiceUrl", "uploadConsent" ("allowed",
 * "withheld"). `log` gets the lines of the developer log, `diagnostics` a JSON object for each step
 * and each trouble, named by its "event"; both on any thread, and released at the end of the
 * process at the earliest.
 */
MVL_API mvl_status mvl_start(const char* options, mvl_text_callback log,
                             mvl_text_callback diagnostics);
/** A descriptor that polls readable when mvl_drain has work. */
MVL_API mvl_status mvl_descriptor(int* descriptor);
/** Runs what waits for the main thread. */
MVL_API mvl_status mvl_drain(void);
/** Runs what comes, until mvl_stop, which may be called on any thread, or mvl_shutdown. @{ */
MVL_API mvl_status mvl_run(void);
MVL_API mvl_status mvl_stop(void); /**@}*/
/** No callback starts afterwards. */
MVL_API mvl_status mvl_shutdown(void);

/** 0 to ask the user again, 1 restricted, 2 denied, 3 authorized. MVL_FAILED: not durable. */
MVL_API mvl_status mvl_set_tracking_authorization(uint64_t status);
/** "allowed" or "withheld". MVL_FAILED: not durable. */
MVL_API mvl_status mvl_set_upload_consent(const char* consent);
/** MVL_FAILED: not done on disk yet. */
MVL_API mvl_status mvl_erase_stored_data(void);

/* The audience. Any thread unless told. */

typedef struct mvl_manager mvl_manager; /**< a KRAudienceManager, whose operations follow */

/** `token`: a UUID, or null for none. */
MVL_API mvl_status mvl_manager_create(const char* token, mvl_manager** manager);
/** What it has begun goes on. Null does nothing. */
MVL_API void mvl_manager_destroy(mvl_manager* manager);
/** The fields of the manager; null for no token or track id. @{ */
MVL_API mvl_status mvl_manager_set_token(mvl_manager* manager, const char* token);
MVL_API mvl_status mvl_manager_set_decimals(mvl_manager* manager, float decimals);
MVL_API mvl_status mvl_manager_set_track_id(mvl_manager* manager, const char* track_id);
MVL_API mvl_status mvl_manager_set_ask_tracking(mvl_manager* manager, int ask); /**@}*/

/** KRAudienceManager::kovraTagsWithCompletion, on the main thread. */
MVL_API mvl_status mvl_geo_tags(mvl_manager* manager, mvl_completion completion);
/** `payload`: a JSON object, or null for the base payload. */
MVL_API mvl_status mvl_collect(mvl_manager* manager, const char* payload, int force,
                               mvl_completion completion);
/** The bytes that mvl_collect would upload. */
MVL_API mvl_status mvl_preview(mvl_manager* manager, const char* payload, char** bytes);
/** `member`: "tags" or "mapping". */
MVL_API mvl_status mvl_cached(const char* member, char** json);
/** `tags`: a JSON object of arrays of strings. */
MVL_API mvl_status mvl_query_string(const char* tags, char** query);

/* The library's settings, by their keys without its prefix. */

/** MVL_FAILED for a value that JSON cannot hold, such as a date. */
MVL_API mvl_status mvl_setting(const char* key, char** json);
/** `json`: any JSON value but null. MVL_FAILED: not durable. */
MVL_API mvl_status mvl_set_setting(const char* key, const char* json);
MVL_API mvl_status mvl_remove_setting(const char* key); /**< MVL_FAILED: not durable. */

#ifdef __cplusplus
}
#endif

#endif
