// JSON texts of any bytes, and building JSON: what could not be stored fails the whole, so that nothing is left out in silence.
#ifndef TAVUTIL_TAVJSON_H
#define TAVUTIL_TAVJSON_H

#include <jansson.h>

// Returns new. Bytes that are no UTF-8 become "?"; null gives "". Null without memory.
json_t *tavJsonText(const char *text) noexcept;

class JsonBuilder {
public:
    JsonBuilder(const JsonBuilder &) = delete;
    JsonBuilder &operator=(const JsonBuilder &) = delete;
    // New; null when something is missing.
    json_t *release() noexcept {
        json_t *json = failed_ ? nullptr : json_;
        if (json) json_ = nullptr;
        return json;
    }

protected:
    explicit JsonBuilder(json_t *json) noexcept : json_(json) {}
    ~JsonBuilder() noexcept { json_decref(json_); }
    void note(int result) noexcept { failed_ = failed_ || result != 0; }

    json_t *json_; // owned

private:
    bool failed_ = false;
};

class JsonObject : public JsonBuilder {
public:
    JsonObject() noexcept : JsonBuilder(json_object()) {}

    // Takes `value`; null: it could not be made.
    void set(const char *key, json_t *value) noexcept { note(json_object_set_new(json_, key, value)); }
    // The same with a key of any bytes.
    void setNamed(const char *name, json_t *value) noexcept {
        json_t *key = tavJsonText(name);
        if (!key) json_decref(value);
        note(key ? json_object_set_new(json_, json_string_value(key), value) : -1);
        json_decref(key);
    }
    void text(const char *key, const char *value) noexcept { set(key, tavJsonText(value)); } // any bytes; null: ""
    void textUnlessNull(const char *key, const char *value) noexcept {
        if (value) text(key, value);
    }
    void textIfAny(const char *key, const char *value) noexcept {
        if (value && *value) text(key, value);
    }
    void number(const char *key, json_int_t value) noexcept { set(key, json_integer(value)); }
    void flag(const char *key, bool value) noexcept { set(key, json_boolean(value)); }
};

class JsonArray : public JsonBuilder {
public:
    JsonArray() noexcept : JsonBuilder(json_array()) {}
    void add(json_t *value) noexcept { note(json_array_append_new(json_, value)); } // as JsonObject::set
};

#endif
