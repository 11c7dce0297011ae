// What a fuzzer, or the replay of its corpus, does with one input.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sonorel::fuzz {

// The bytes are a meta audio policy file: head, tables, texts.
void feedMetaPolicy(const uint8_t* bytes, size_t size);
// The bytes are a sound-separation configuration file.
void feedMssConfiguration(const uint8_t* bytes, size_t size);

}  // namespace sonorel::fuzz
