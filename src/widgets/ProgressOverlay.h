#pragma once

#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

// Covers a screen while the phone works on an operation: blocks input to the screen,
// shows what stage the operation is in and how far it got, and offers Cancel.
class ProgressOverlay : public QWidget
{
    Q_OBJECT

public:
    // The overlay covers `parent` (the screen it blocks) entirely and follows its size.
    ProgressOverlay(const QString& title, QWidget* parent);

    // A stage line ("Sending 12.0 MB of 40.0 MB") and progress; total 0 = unknown (busy bar).
    void setStage(const QString& text, qint64 done = 0, qint64 total = 0);

    QWidget* panel() const { return m_panel; }
    QLabel* textLabel() const { return m_text; }
    QLabel* stageLabel() const { return m_stage; }
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
    QWidget* m_panel;
    QLabel* m_text;
    QWidget* m_spinner;
    QLabel* m_stage;
    QProgressBar* m_progress;
    QPushButton* m_cancel;
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
