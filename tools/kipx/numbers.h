// numbers.h - numbers on the command line, where an image could stand or one for every channel can.
//
// Gives    the numbers of a text, those for an image's channels, and whether a text means them.
// Promises a text that does not fit ends in one sentence. A file of the name goes before a number.
#pragma once

#include "image/image.h"

#include <string>
#include <vector>

// Finite numbers with commas between them; none where the text is something else.
std::vector<double> numbers_of(const std::string &text);
// One for all channels, or one for each; option is what stands before the complaint.
std::vector<double> numbers_for(const Image &image, const std::string &option,
                                const std::string &text);
// Whether they are numbers, and no file that is called so, nor standard input; fails where it is neither.
bool means_numbers(const std::string &option, const std::string &text);
