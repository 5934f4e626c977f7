#pragma once

#include <QObject>

#include <memory>

class QTimer;

/**
 * The board side of the picture: the scripts that route the GMSL link, the power-down lines of the
 * two SerDes chips, the ACC keep-power line and the 10 ms board monitor.
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

    /// True pulls the chip's power-down line low for a number of ticks, false releases it.
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

Q_SIGNALS:
    /// 1 short click of the physical switch, 2 ACC level changed, 3 ACC high for 1000 ticks.
    void phySwitchTriggerSignal(int index);

public Q_SLOTS:
    void onPer10ms();                ///< one tick of the board monitor
    void switchVideoSlot(int video); ///< 0 asks for DA, any other value for PVM

private:
    void runSwitchScript(const char *command);

    std::unique_ptr<QTimer> mPer10msTimer;
    bool mIsShowPVM;
    int mOpenBacklightTicks; ///< ticks until the backlight script runs, 0 none pending
    bool mDeserPwdnActive;   ///< the deserializer is being held in power-down
    int mDeserPwdnTicks;     ///< ticks until it is released
    bool mSerPwdnActive;
    int mSerPwdnTicks;
};
