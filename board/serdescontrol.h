#pragma once

#include <QObject>

#include <memory>

class QTimer;

/**
 * The board side of the picture: the scripts that route the GMSL link, the power-down lines of the
 * two SerDes chips, the ACC keep-power line and the 10 ms board monitor.
 *
 * The monitor debounces the switch, ACC and the two lock lines: a change is accepted on the 7th
 * reading in a row. docs/board.md tables what follows from it.
 *
 * Scripts run synchronously on the calling (main) thread and their exit status is not looked at.
 * Line failures are reported by the functions of GPIOSet.h.
 */
class SerdesControl : public QObject
{
    Q_OBJECT

public:
    explicit SerdesControl(QObject *parent);
    ~SerdesControl() override; ///< touches no board line

    /// The video path is routed for PVM. True from construction on, before any script ran: the
    /// first request for DA then runs the DA script.
    bool getIsShowPVM() const;

    void handle_gmsl_switchto_PVM(); ///< runs the script and arms the backlight countdown
    void handle_gmsl_switchto_DA();
    void handle_gmsl_switch_openbacklight(); ///< one tick of the backlight countdown

    /// True pulls the chip's power-down line low; the monitor releases it 20 (deserializer) or 30
    /// (serializer) ticks later. False releases it at once and leaves that countdown running.
    void Reset_DeserPwdn(bool reset);
    void Reset_SerPwdn(bool reset);

    /// True keeps the board powered.
    void setAccKeepPowerOn(bool on);

    /// Read a line into @p level, which keeps its value when the line cannot be read. Both return
    /// 0 in any case.
    int getSwitchStatus(bool *level);
    int getAccStatus(bool *level);

    // The controller does not call these.
    void setLcdBacklight(unsigned int level); ///< in the display driver's own steps
    void switchGMSLLink(bool pvm);
    void switchVideoSource(bool serdes);
    void Delay_MSec(unsigned int ms); ///< processes events while it waits

    /// What @p command wrote to standard output, less its last character; "error" when no shell
    /// could be started for it. Blocks until the command ends.
    QString exec_shell(const char *command);

    /// Reads @p length bytes of the serializer from register (@p regHigh, @p regLow) on into
    /// @p out, with i2ctransfer. When another number of values comes back, logs it and leaves
    /// @p out alone. A value that is no number reads as 0; so does the one byte of a read that
    /// failed, since no output counts as one empty value.
    void Read_iic_from_ser(unsigned char regHigh, unsigned char regLow, unsigned char *out,
                           unsigned char length);

Q_SIGNALS:
    /// 1 short click of the physical switch, 2 ACC level changed, 3 ACC high for 1000 ticks.
    void phySwitchTriggerSignal(int index);

public Q_SLOTS:
    void onPer10ms();                ///< one tick of the board monitor
    void slot_mtimer_timeout();      ///< reads one of four serializer registers, logs a change
    void switchVideoSlot(int video); ///< 0 asks for DA, any other value for PVM

private:
    // The stages of one tick, in their order.
    void watchSwitch();
    void watchDeserLock();
    void countPowerDowns();
    bool watchSerLock(); ///< true when the lock has come back on this tick
    void waitAfterSerReset();
    void countSwitchScript();
    void watchAcc();
    void endTick();

    void giveClick();
    void countLongPress();
    void runSwitchScript(const char *command);
    void pollRegister(unsigned char regHigh, unsigned char regLow, unsigned char &last,
                      const char *text);

    // All countdowns are in ticks of 10 ms, and 0 when nothing is pending.
    std::unique_ptr<QTimer> mPer10msTimer;
    bool mSwitchLevel;            ///< accepted level of the switch: high while pressed
    unsigned int mSwitchDebounce; ///< ticks in a row with another reading
    int mSwitchHoldTicks;         ///< until a press counts as a long one
    bool mIsShowPVM;
    int mDeserLock; ///< accepted level, -1 not read yet
    int mDeserLockDebounce;
    bool mAccLevel;
    unsigned int mAccDebounce;
    unsigned int mAccHighTicks; ///< counted up while ACC is high
    int mSerLock;               ///< accepted level, -1 not read yet
    unsigned int mSerLockDebounce;
    int mSwitchScriptDelay;  ///< until the script of the current picture runs again
    bool mSerResetPending;   ///< the serializer was released and its lock is awaited
    int mSerResetWait;       ///< what is left of that wait
    int mOpenBacklightTicks; ///< until the backlight script runs
    bool mDeserPwdnActive;   ///< the deserializer is being held in power-down
    int mDeserPwdnTicks;     ///< until it is released
    bool mSerPwdnActive;
    int mSerPwdnTicks;
};
