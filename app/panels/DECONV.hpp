// The option panel of the charge deconvolution (deconv.uir): the accuracy of
// the neutral-mass grid and its mode, asked for once at the first
// deconvolution of the plot panel; the ladder's mass limit and tolerance.
#pragma once

#include <QDialog>

#include "thrash/deconvolve.hpp"

class QComboBox;
class QDoubleSpinBox;

namespace vx {

class DeconvOptionPanel : public QDialog {
    Q_OBJECT
public:
    explicit DeconvOptionPanel(QWidget* parent);
    // The options for a deconvolution of the given mode (DECONV_LOWZ, ...):
    // in the DECONV mode the grid keeps its fixed accuracy of 4.0, else the
    // accuracy control's resolving power.
    DeconvOptions options(int mode) const;
    double ppm() const;
    // fixed: the DECONV mode.
    void set(double accuracy, bool fixed, double limit_kda, double ppm);

private:
    QComboBox* mode_;
    QDoubleSpinBox *accuracy_, *limit_, *ppm_;
};

}  // namespace vx
