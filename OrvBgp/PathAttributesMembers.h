// Every sub-attribute type an attribute set points to, complete: for the units that copy, compare,
// hash or release those pointers.
//   #include "OrvBgp/PathAttributesMembers.h"
//   Mel::PtrConst<CommList> c = CommList::intern({0xfde80064});
#pragma once

#include "AsPath/AspathAttrCanonical.h"
#include "OrvBgp/BgpPathAttributesMisc.h"
#include "OrvBgp/BgpTunnelEncap.h"
#include "OrvBgp/ClusterList.h"
#include "OrvBgp/DomainPath.h"
#include "OrvBgp/GunkAttributes.h"
#include "OrvBgp/LinkStateAttr.h"
#include "OrvBgp/OrvBgpNexthop.h"
#include "OrvBgp/PmsiTunnel.h"
#include "OrvBgp/SrTeAttributes.h"
#include "Routing/CommList.h"
