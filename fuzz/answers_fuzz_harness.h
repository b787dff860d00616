#pragma once
// Feeds arbitrary answers to the whole host: the local service's and the
// cloud's HTTP answers (status, media type, body), the browser's call
// results, and the defaults file, while a fixed script of page messages,
// toolbar hooks and popover clicks asks for every kind of answer.
//
// Input format (text, so that a corpus of deep and wide JSON is easy to
// write): sections separated by a line "===". The first section is the
// defaults file. Each further one is an answer: a first line "STATUS TYPE"
// (say "200 application/json") and the body after it. HTTP requests take the
// answers in the order they arrive; the browser's calls take the same bodies
// as their result values, in order. Anything malformed is taken as it comes.
#include <cstddef>
#include <cstdint>

namespace wren::fuzz {
void runAnswersInput(const uint8_t* data, size_t size);
}
