// Puts the questions of standard input to the drivers of this machine and prints them with the answers.
#include "tests/machine/questions.hpp"

#include <iostream>

int main() { std::cout << questions::asked(std::cin); }
