// What a reader says.
#pragma once

#include <vector>

// A notice of 24 bytes with an EPC of 12 that ends in this number.
std::vector<unsigned char> notice(int number);

// The answer to an inventory: so many notices, or that there is no tag.
std::vector<unsigned char> answer_of(int tags);
