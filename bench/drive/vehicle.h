// SPDX-License-Identifier: MIT

#pragma once

#include "bench/board/busframe.h"
#include "bench/drive/words.h"

#include <array>
#include <cstdint>
#include <vector>

/**
 * A vehicle made of a drive's words, and the frames that it puts on a bus of 500 kbit/s: the nine
 * identifiers that the controller knows at their cycle times, whatever else the drive asks for, one
 * frame on the wire at a time and the lowest identifier first. The same words always give the same
 * frames.
 *
 * Before the first word it stands in P with the key on, everything off, and nobody else talks.
 */
class Vehicle
{
public:
    /// The time stamp of drive time 0; any day will do.
    static constexpr int64_t kStartUs = 1'700'000'000'000'000;

    explicit Vehicle(const std::vector<Statement> &statements);

    /// Everything that it sends, until `end` or until all that the words ask for is over.
    std::vector<BusFrame> frames() const;

    /// Whether the controller looks at this identifier, flags of <linux/can.h> aside.
    static bool isKnown(uint32_t id);

private:
    /// A number over time: jumps, and straight lines.
    class Track
    {
    public:
        explicit Track(double value) : mPieces{{0, value, value, 0}} {}
        void set(int64_t atUs, double value, int64_t overUs = 0);
        double at(int64_t us) const;

    private:
        struct Piece
        {
            int64_t atUs;
            double from;
            double to;
            int64_t overUs;
            double at(int64_t us) const;
        };
        std::vector<Piece> mPieces; ///< in order of time
    };

    using Payload = std::array<uint8_t, 8> (Vehicle::*)(int64_t us) const;

    struct Message
    {
        BusFrame frame;
        int64_t periodUs; ///< 0: once
        int64_t dueUs;    ///< of the next one
        int64_t endUs;
        Payload payload; ///< null: the frame's own bytes, the last of them a counter if it has load
        double load;     ///< percent of the bus that is talked full before it joins; -1: always

        uint32_t priority() const;
        int64_t wireUs() const;
        double share() const; ///< percent of the bus
        void advance(int64_t us);
    };

    void take(const Statement &statement);
    std::vector<Message> messages() const;
    void addOtherTalk(std::vector<Message> *messages) const;
    bool isSent(const Message &message, int64_t us) const;

    std::array<uint8_t, 8> shortCycleGear(int64_t us) const;
    std::array<uint8_t, 8> longCycleGear(int64_t us) const;
    std::array<uint8_t, 8> light(int64_t us) const;
    std::array<uint8_t, 8> key(int64_t us) const;
    std::array<uint8_t, 8> speed(int64_t us) const;
    std::array<uint8_t, 8> angle(int64_t us) const;
    std::array<uint8_t, 8> lowRadar(int64_t us) const;
    std::array<uint8_t, 8> highRadar(int64_t us) const;
    std::array<uint8_t, 8> clock(int64_t us) const;
    uint8_t radarCode(int sensor, int64_t us) const;

    int64_t mEndUs = 0;
    Track mGear{0}; ///< codes on the bus
    Track mLight{0};
    Track mKey{0x54};
    Track mSpeed{0};
    Track mAngle{0};  ///< as the renderer gets it
    Track mRadar{0};  ///< six octal digits
    Track mClock{-1}; ///< seconds since 1970 at drive time 0, as the bus counts; -1: none is sent
    Track mLoad{0};   ///< percent
    Track mIsAwake{1};
    std::vector<Message> mExtra; ///< what `frame` asks for
};
