#pragma once

#include <unistd.h>
#include <utility>

/// Owns an open file; a negative number stands for none.
class Descriptor
{
public:
    explicit Descriptor(int number = -1) : number(number) {}
    Descriptor(Descriptor &&other) noexcept : number(std::exchange(other.number, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        std::swap(number, other.number);
        return *this;
    }
    ~Descriptor()
    {
        if (number >= 0) {
            close(number);
        }
    }

    bool isOpen() const { return number >= 0; }
    int get() const { return number; }

private:
    int number;
};
