#include "DECONV.hpp"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>

namespace vx {

namespace {
// The accuracy the DECONV mode has always used: a grid of 25 % steps, coarse
// enough to merge a whole cluster into one mass.
constexpr double DECONV_FIXED_ACCURACY = 4.0;
}  // namespace

DeconvOptionPanel::DeconvOptionPanel(QWidget* parent) : QDialog(parent) {
    setObjectName("DECONV");
    setWindowTitle("Deconvolution Options");
    auto* form = new QFormLayout(this);
    mode_ = new QComboBox;
    mode_->setObjectName("mode");
    mode_->addItems({"Accuracy", "DECONV (fixed 4.0)"});
    accuracy_ = new QDoubleSpinBox;
    accuracy_->setObjectName("accuracy");
    accuracy_->setRange(10.0, 10000000.0);
    accuracy_->setDecimals(0);
    accuracy_->setValue(100000.0);
    limit_ = new QDoubleSpinBox;
    limit_->setObjectName("limit");
    limit_->setRange(0.1, 10000.0);
    limit_->setValue(100.0);
    ppm_ = new QDoubleSpinBox;
    ppm_->setObjectName("ppm");
    ppm_->setRange(0.01, 10000.0);
    ppm_->setValue(20.0);
    form->addRow("Mode", mode_);
    form->addRow("Accuracy (resolving power)", accuracy_);
    form->addRow("Highest mass, kDa", limit_);
    form->addRow("Ladder tolerance, ppm", ppm_);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok);
    form->addRow(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(mode_, &QComboBox::currentIndexChanged, this, [this](int i) { accuracy_->setEnabled(i == 0); });
}

DeconvOptions DeconvOptionPanel::options(int mode) const {
    DeconvOptions o;
    o.mode = mode;
    o.resolution = mode_->currentIndex() == 1 ? DECONV_FIXED_ACCURACY : accuracy_->value();
    o.limit_kda = limit_->value();
    return o;
}

double DeconvOptionPanel::ppm() const { return ppm_->value(); }

void DeconvOptionPanel::set(double accuracy, bool fixed, double limit_kda, double ppm) {
    accuracy_->setValue(accuracy);
    mode_->setCurrentIndex(fixed ? 1 : 0);
    limit_->setValue(limit_kda);
    ppm_->setValue(ppm);
}

}  // namespace vx
