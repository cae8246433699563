#include "Answer.h"

namespace controller {

AnswerPtr makeAnswer(std::string text) { return makeAnswer(nullptr, 0, 0, std::move(text)); }

AnswerPtr makeAnswer(std::shared_ptr<const std::string> base, size_t begin, size_t end, std::string text) {
    auto bytes = std::make_shared<AnswerBytes>();
    bytes->text = std::move(text);
    bytes->base = std::move(base);
    const std::string_view whole = bytes->base ? std::string_view(*bytes->base) : std::string_view();
    bytes->pieces = {whole.substr(0, begin), bytes->text, whole.substr(end)};
    return std::make_shared<Answer>(Answer{std::move(bytes), nullptr});
}

} // namespace controller
