// SPDX-License-Identifier: Apache-2.0
#include "tqorkit/tqExtOri.h"

namespace tqorkit {

void tqExtOri::GetPos(double* sixDoubles) const {
  const double* stored = record_.position;
  sixDoubles[0] = stored[0];
  sixDoubles[1] = stored[1];
  sixDoubles[2] = stored[2];
  // Kept: the camera model wants phi before omega while lists and files hold omega before phi, so
  // the two change places here; whoever writes a record from these six exchanges them back.
  sixDoubles[3] = stored[4];
  sixDoubles[4] = stored[3];
  sixDoubles[5] = stored[5];
}

void tqExtOri::SetGSD(double gsdX, double gsdY) {
  record_.heightPair[0] = gsdX;
  record_.heightPair[1] = gsdY;
}

}  // namespace tqorkit
