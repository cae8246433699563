// Building JSON: what could not be stored fails the whole, so that nothing is left out in silence.
#ifndef VHOST_JSONBUILDER_H
#define VHOST_JSONBUILDER_H

#include <jansson.h>

#include "vHost/vHost.h"

class JsonObject {
public:
    JsonObject() noexcept : json_(json_object()) {}
    ~JsonObject() noexcept { json_decref(json_); }
    JsonObject(const JsonObject &) = delete;
    JsonObject &operator=(const JsonObject &) = delete;

    // Takes `value`; null: it could not be made.
    void set(const char *key, json_t *value) noexcept {
        if (json_object_set_new(json_, key, value) != 0) failed_ = true;
    }
    void text(const char *key, const char *value) noexcept { set(key, vhostJsonText(value)); } // any bytes; null: ""
    void textIfAny(const char *key, const char *value) noexcept {
        if (value && *value) text(key, value);
    }
    void number(const char *key, json_int_t value) noexcept { set(key, json_integer(value)); }
    void flag(const char *key, bool value) noexcept { set(key, json_boolean(value)); }
    // New; null when something is missing.
    json_t *release() noexcept {
        json_t *json = failed_ ? nullptr : json_;
        if (json) json_ = nullptr;
        return json;
    }

private:
    json_t *json_;
    bool failed_ = false;
};

class JsonArray {
public:
    JsonArray() noexcept : json_(json_array()) {}
    ~JsonArray() noexcept { json_decref(json_); }
    JsonArray(const JsonArray &) = delete;
    JsonArray &operator=(const JsonArray &) = delete;

    void add(json_t *value) noexcept { // as JsonObject::set
        if (json_array_append_new(json_, value) != 0) failed_ = true;
    }
    json_t *release() noexcept {
        json_t *json = failed_ ? nullptr : json_;
        if (json) json_ = nullptr;
        return json;
    }

private:
    json_t *json_;
    bool failed_ = false;
};

#endif
