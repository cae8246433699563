// Building JSON: what could not be stored fails the whole, so that nothing is left out in silence.
#ifndef TAVSTATUS_STATUSJSON_H
#define TAVSTATUS_STATUSJSON_H

#include <jansson.h>

#include "vHost/vHost.h"

class StatusObject {
public:
    StatusObject() noexcept : json_(json_object()) {}
    ~StatusObject() noexcept { json_decref(json_); }
    StatusObject(const StatusObject &) = delete;
    StatusObject &operator=(const StatusObject &) = delete;

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

class StatusArray {
public:
    StatusArray() noexcept : json_(json_array()) {}
    ~StatusArray() noexcept { json_decref(json_); }
    StatusArray(const StatusArray &) = delete;
    StatusArray &operator=(const StatusArray &) = delete;

    void add(json_t *value) noexcept { // as StatusObject::set
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
