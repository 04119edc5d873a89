// The facade: one object through which a client drives any of the four kinds of pad.
//
// A client lists the providers, opens one by its class id, registers a pen callback, opens the
// connection; later closes the connection and the provider. Nothing here throws on its own. Every
// operation on the pad gives its failure value, in silence, while no provider is open. An open
// provider serves for one connection: before the next one, close and open it again.
//
// Threads: all operations belong to one thread, the client's. The callback runs on a thread of the
// SDK (see PenEventHandler.h).
#ifndef GIIVELA_GIIVELA_H
#define GIIVELA_GIIVELA_H

#include "Export.h"
#include "PenEventHandler.h"

class velausb;
class velaii;
class velainkusb;
class velavision;

// The drivers of the open providers, null while there is none. One of each for the process: only
// one facade is meant to be alive at a time.
extern GIIVELA_API velausb* m_pvelausb;
extern GIIVELA_API velaii* m_pvelaii;
extern GIIVELA_API velainkusb* m_pvelaink;
extern GIIVELA_API velavision* m_pvelavision;

struct ProviderEntry {
  char classid[33];  // 32 upper-case hexadecimal digits and a terminator
  char description[64];
};

// The order of the virtual operations is part of the interface.
class GIIVELA_API gIIVela {
 public:
  // A facade with four providers, none open. Forgets the drivers of an earlier facade.
  gIIVela();

  // Closes neither the connection nor the provider.
  virtual ~gIIVela();
  gIIVela(const gIIVela&) = delete;
  gIIVela& operator=(const gIIVela&) = delete;

  // Ends the delivery and closes the pad. Returns once the pad has been quiet for a second, or at
  // once when it is unplugged; the callback is not called any more after that.
  virtual void CloseConnection();

  // Opens the pad and starts the delivery to the registered handler. False when no provider is
  // open, and, after a line on standard output, when no handler is registered. True in all other
  // cases, also when the pad could not be opened, on purpose: it then stays silent. SIGUSR1 stays
  // blocked in the calling thread.
  virtual bool OpenConnection();

  // The number of providers: 4.
  virtual short GetNumProviders();

  // The class id of a provider, or its display name in UTF-8, for index 0 to 3; null for others.
  // The text is the facade's and lives as long.
  virtual char* GetProviderClassID(short index);
  virtual char* GetProviderDescription(short index);

  // Does nothing: the table is fixed.
  virtual void SetProviderDescription(char* classid, char* description);

  // Opens the first provider whose class id begins with the text, which must not be null and is not
  // written to; so a shortened id serves, and the empty text opens provider 0. Case matters. False
  // when there is none. A provider that is open is not closed: close it before.
  virtual bool OpenProvider(char* classid);

  // Closes the open provider, whose connection the client has closed before.
  virtual void CloseProvider();

  // The number of attached pads of the open provider's kind; 0 without one.
  virtual short GetNumDevices();

  // The pad's serial number in memory from malloc that the caller frees. Hexadecimal text of up to
  // 32 digits for the pad II and the ink pad, which ends in 16 zeros when the pad is not connected
  // or its request fails; null for a reply of no bytes. 16 raw bytes for the vision pad, which are
  // not a text and have no terminator; null when they cannot be read. Null for the USB pad, which
  // has none.
  virtual char* GetSerialNumber();

  // The ends of the ranges of x, y and pressure (z) in device units, asked of the driver at every
  // call; 0 when it does not tell, as the vision pad's without a connection.
  virtual int GetDataRangeMinX();
  virtual int GetDataRangeMinY();
  virtual int GetDataRangeMinZ();
  virtual int GetDataRangeMaxX();
  virtual int GetDataRangeMaxY();
  virtual int GetDataRangeMaxZ();

  // The size of the writing surface in inches as the pad states it, so any double; 0.0 without an
  // open provider, and before a connection for the pad II and the vision pad.
  virtual double GetPhysicalX();
  virtual double GetPhysicalY();

  // Sets the handler for the next OpenConnection, before or after OpenProvider. False for null,
  // which leaves an earlier one in place.
  virtual bool RegisterEventHandler(PenEventHandler handler);

  // Clears the ink that the pad shows. False when no provider is open, and for the vision pad also
  // without a connection or when it took no bytes; an error counts as success. True for a pad that
  // shows no ink.
  virtual bool ClearInking();

 private:
  template <class Failure, class Operation>
  Failure withDriver(Failure failure, Operation operation);
  int dataRange(int gIIVela::*end);

  ProviderEntry m_providers[10];  // the first m_numProviders are in use
  int m_numProviders;
  int m_curProvider;  // the open provider's index, or -1
  PenEventHandler m_eventHandler;
  // As the last query of a range left them.
  int m_minX = 0;
  int m_minY = 0;
  int m_minZ = 0;
  int m_maxX = 0;
  int m_maxY = 0;
  int m_maxZ = 0;
};

#endif
