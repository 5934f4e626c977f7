// SPDX-License-Identifier: MIT

// A test as anybody writes one, with Qt's keywords, an enumeration of its own, and what the
// controller's own warnings would not let pass.

#include HEADER

#include <QtTest>

enum Gear { kGearR = 7 };

class TestUser : public QObject
{
    Q_OBJECT

signals:
    void asked(int unused);

private slots:
    void usesTheClass()
    {
        connect(this, &TestUser::asked, [](int unused) {});
        char narrow = 0;
        narrow += kGearR;
        emit asked(narrow);
        QVERIFY(CLASS::staticMetaObject.methodCount() > QObject::staticMetaObject.methodCount());
        QObject *(*create)() = []() -> QObject * { return new CLASS; }; // a parent is not needed
        QVERIFY(create != nullptr);
    }
};

QTEST_GUILESS_MAIN(TestUser)
#include "tst_user.moc"
