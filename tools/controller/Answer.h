// The body of an answer, shared by every poller that gets it.
#ifndef CONTROLLER_ANSWER_H
#define CONTROLLER_ANSWER_H

#include <array>
#include <memory>
#include <string>
#include <string_view>

namespace controller {

struct AnswerBytes {
    std::string text;                        // its own
    std::shared_ptr<const std::string> base; // what other pieces stand in; may be null
    std::array<std::string_view, 3> pieces;  // the body, of `base` and `text`
};

struct Answer {
    std::shared_ptr<const AnswerBytes> bytes;
    std::shared_ptr<void> made; // what the HTTP side made of it; its thread only

    size_t size() const { return bytes->pieces[0].size() + bytes->pieces[1].size() + bytes->pieces[2].size(); }
    std::string body() const { return std::string(bytes->pieces[0]).append(bytes->pieces[1]).append(bytes->pieces[2]); }
};
using AnswerPtr = std::shared_ptr<Answer>;

AnswerPtr makeAnswer(std::string text);
// `base` with `text` in place of its bytes from `begin` to `end`.
AnswerPtr makeAnswer(std::shared_ptr<const std::string> base, size_t begin, size_t end, std::string text);

} // namespace controller

#endif
