// SPDX-License-Identifier: MIT
//
// Reads the frames of a candump log from standard input and prints after each what the decoder has
// stored: light, key, speed, angle, gear of the latest gear frame, radar, date, time.
#include "can/caninterface.h"
#include "can/cantest.h"
#include "tests/seam/effects.h"
#include "tests/seam/fakecan.h"

#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    effects::reset();
    fakecan::reset();
    CanTest can(nullptr);
    QTextStream in(stdin);
    QTextStream out(stdout);
    for (QString line = in.readLine(); !line.isNull(); line = in.readLine()) {
        // (TIME) CHANNEL ID#DATA
        fakecan::device->receive({fakecan::frame(line.section(QLatin1Char(' '), 2, 2))});
        out << can.mLightStatus << ' ' << can.mKeyStatus << ' ' << can.mSpeed << ' ' << can.mAngle
            << ' ' << can.mGearCandidate << ' ' << can.mRadarStatus << ' ' << can.mCanDate << ' '
            << can.mCanTime << '\n';
    }
    return 0;
}
