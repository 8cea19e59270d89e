/* SPDX-License-Identifier: MIT */
/* The main job from C. Takes options for mvl_start that name a service on loopback. */
#include <morvellacinto/c/morvellacinto.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int steps = 0;

static void require(int is_so, const char* what) {
    ++steps;
    if (!is_so) {
        fprintf(stderr, "step %d: %s: %s\n", steps, what, mvl_error());
        exit(EXIT_FAILURE);
    }
}

static void answered(void* user, const char* answer, const char* error) {
    require(answer != NULL && error == NULL && strstr(answer, "\"tags\"") != NULL, "an answer");
    *(int*)user += 1;
    mvl_stop();
}

static void released(void* user) { *(int*)user += 10; }

static void told(void* user, const char* record) {
    *(int*)user += strstr(record, "\"event\":\"uploadBegun\"") != NULL;
}

int main(int count, char** arguments) {
    int uploads = 0;
    int calls = 0;
    char* text = NULL;
    mvl_manager* manager = NULL;
    const mvl_text_callback none = {NULL, NULL, NULL};
    const mvl_text_callback records = {told, &uploads, NULL};
    const mvl_completion completion = {answered, &calls, released};
    const mvl_completion nobody = {NULL, &calls, released};

    require(mvl_cached("tags", &text) == MVL_WRONG && strstr(mvl_error(), "no platform") != NULL,
            "nothing works before a start");
    require(mvl_start("{\"bundel\":1}", none, none) == MVL_WRONG &&
                strstr(mvl_error(), "bundel") != NULL,
            "an unknown option is named");
    require(count == 2 && mvl_start(arguments[1], none, records) == MVL_OK, "a start");
    require(mvl_manager_create("0123abcd-0000-4000-8000-00000000ffff", &manager) == MVL_OK, "one");
    require(mvl_collect(manager, "[]", 0, nobody) == MVL_WRONG && calls == 10, "no object");
    require(mvl_preview(manager, "{\"a\":1}", &text) == MVL_OK && !strcmp(text, "{\"a\":1}"),
            "a preview");
    mvl_free(text);
    require(mvl_geo_tags(manager, completion) == MVL_OK && calls == 10, "never inside the call");
    require(mvl_run() == MVL_OK && calls % 10 == 1 && uploads == 1, "an upload");
    require(mvl_cached("tags", &text) == MVL_OK, "cached");
    mvl_free(text);
    require(mvl_query_string("{\"a\":[\"b c\"]}", &text) == MVL_OK && !strcmp(text, "a=b%20c"),
            "a query");
    mvl_free(text);
    require(mvl_set_setting("own", "[1,{\"x\":2.5}]") == MVL_OK, "a setting is stored");
    require(mvl_setting("own", &text) == MVL_OK && !strcmp(text, "[1,{\"x\":2.5}]"), "and read");
    mvl_free(text);
    require(mvl_set_upload_consent("withheld") == MVL_OK, "consent is withheld");
    require(mvl_erase_stored_data() == MVL_OK && mvl_cached("tags", &text) == MVL_NOTHING,
            "nothing is left");
    mvl_manager_destroy(manager);
    require(mvl_shutdown() == MVL_OK && mvl_drain() == MVL_OK && calls == 21, "the end");
    return EXIT_SUCCESS;
}
