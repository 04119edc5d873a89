#include "VelaWrap.h"

#include "giivela.h"

namespace {

gIIVela* facade(void* vela) {
  return static_cast<gIIVela*>(vela);
}

}  // namespace

void* newgIIVela(void) {
  return new gIIVela;
}

void deletegIIVela(void* vela) {
  delete facade(vela);
}

short GetNumProviders(void* vela) {
  return facade(vela)->GetNumProviders();
}

char* GetProviderClassID(void* vela, short index) {
  return facade(vela)->GetProviderClassID(index);
}

char* GetProviderDescription(void* vela, short index) {
  return facade(vela)->GetProviderDescription(index);
}

void SetProviderDescription(void* vela, char* classid, char* description) {
  facade(vela)->SetProviderDescription(classid, description);
}

bool OpenProvider(void* vela, char* classid) {
  return facade(vela)->OpenProvider(classid);
}

void CloseProvider(void* vela) {
  facade(vela)->CloseProvider();
}

bool OpenConnection(void* vela) {
  return facade(vela)->OpenConnection();
}

void CloseConnection(void* vela) {
  facade(vela)->CloseConnection();
}

short GetNumDevices(void* vela) {
  return facade(vela)->GetNumDevices();
}

char* GetSerialNumber(void* vela) {
  return facade(vela)->GetSerialNumber();
}

int GetDataRangeMinX(void* vela) {
  return facade(vela)->GetDataRangeMinX();
}

int GetDataRangeMinY(void* vela) {
  return facade(vela)->GetDataRangeMinY();
}

int GetDataRangeMinZ(void* vela) {
  return facade(vela)->GetDataRangeMinZ();
}

int GetDataRangeMaxX(void* vela) {
  return facade(vela)->GetDataRangeMaxX();
}

int GetDataRangeMaxY(void* vela) {
  return facade(vela)->GetDataRangeMaxY();
}

int GetDataRangeMaxZ(void* vela) {
  return facade(vela)->GetDataRangeMaxZ();
}

double GetPhysicalX(void* vela) {
  return facade(vela)->GetPhysicalX();
}

double GetPhysicalY(void* vela) {
  return facade(vela)->GetPhysicalY();
}

bool RegisterEventHandler(void* vela, PenEventHandler handler) {
  return facade(vela)->RegisterEventHandler(handler);
}

bool ClearInking(void* vela) {
  return facade(vela)->ClearInking();
}
