// inputs.h - which images a batch works on, and how the results of each are called.
//
// Gives    gather_inputs: files as they are given, and those in folders.
// Promises what comes from a folder stands in the order of its names, and its results keep the path
//          below the folder. Names that differ only in their folder or ending give results that
//          differ: those that would meet keep their path below the folder that all inputs are in, and
//          where that does not part them their ending.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct Selection {
    std::vector<std::string> files; // and folders
    std::string pattern;            // of names in folders; empty: endings of image files
    bool subfolders = false;
    std::string output; // nothing in this folder is an input
};

struct Input {
    std::string path;
    std::string file;  // as tables name it
    std::string name;  // of the results, below the folder of all results, without an ending
    uint32_t page = 1; // of pages
};

std::vector<Input> gather_inputs(const Selection &selection);
