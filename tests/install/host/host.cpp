#include <iostream>
#include <zentadbpp.hpp>

int main() { std::cout << zentadbpp::read(zentadbpp::update(R"({"title": "x"})", "{}")) << '\n'; }
