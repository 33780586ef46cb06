#pragma once

#include <QPointer>
#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

// Covers its screen while the phone works on that screen's operation: dims it and takes it out
// of the user's hands (its parts are disabled), shows what stage the operation is in and how
// far it got (also to assistive technology, as the overlay's accessible description and the
// progress bar's value), and offers Cancel, also on Escape. The rest of the window stays
// usable; the keyboard goes to Cancel when the overlay shows and back when it goes.
class ProgressOverlay : public QWidget
{
    Q_OBJECT

public:
    // The overlay belongs to `screen` (it goes when the screen goes) and covers it, following
    // its size.
    ProgressOverlay(const QString& title, QWidget* screen);
    // Gives the keyboard focus back to where it was before the overlay took it.
    ~ProgressOverlay() override;

    void setVisible(bool visible) override;

    // A stage line ("Sending 12.0 MB of 40.0 MB") and progress; total 0 = unknown (busy bar).
    void setStage(const QString& text, qint64 done = 0, qint64 total = 0);
    // A second line under the stage (speed and time left, time waited); empty hides it.
    void setDetail(const QString& text);

    QWidget* panel() const { return m_panel; }
    QLabel* textLabel() const { return m_text; }
    QLabel* stageLabel() const { return m_stage; }
    QLabel* detailLabel() const { return m_detail; }
    QProgressBar* progressBar() const { return m_progress; }
    QPushButton* cancelButton() const { return m_cancel; }

Q_SIGNALS:
    void cancelRequested();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    class Bar;
    void describe();
    void holdScreen();
    void releaseScreen();

    QWidget* m_panel;
    QLabel* m_text;
    QWidget* m_spinner;
    QLabel* m_stage;
    QLabel* m_detail;
    QProgressBar* m_progress;
    QPushButton* m_cancel;
    QPointer<QWidget> m_previousFocus;
    bool m_shownOnce = false;
    QList<QPointer<QWidget>> m_held; // the screen's parts taken out of the user's hands
};

// The overlay of the encrypt operation ("ENCRYPTING").
class EncryptingViewController : public ProgressOverlay
{
    Q_OBJECT
public:
    explicit EncryptingViewController(QWidget* parent);
    QLabel* encrpytingText() const { return textLabel(); }
    QWidget* encryptingViewYellow() const { return panel(); }
};

// The overlay of the decrypt operation ("DECRYPTING").
class DecryptingViewController : public ProgressOverlay
{
    Q_OBJECT
public:
    explicit DecryptingViewController(QWidget* parent);
    QLabel* decryptingText() const { return textLabel(); }
    QWidget* decryptingViewYellow() const { return panel(); }
};
