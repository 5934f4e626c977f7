// SPDX-License-Identifier: MIT

#include "app/pvmmain.h"

#include <QApplication>

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    PvmMain controller(nullptr);
    controller.run();
    return QApplication::exec();
}
