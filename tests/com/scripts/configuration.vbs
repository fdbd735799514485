' Configuration transfer as a technician runs it: change, download, upload, import, failures.

Dim node, device, item, saved, before, other, otherNode

Set device = ConnectDefault(node)

BeginCase "a level-3 download and the upload after it"
device.Upload 1 Or 2 Or 256 Or 512
Set item = device.Object(1).Variable("nciFrostSetpt")
item.Value = 7.5
CheckEqual node.Value("0-1"), "02EE", "a configuration item is written to the host at once"
device.Object(1).Variable("nciSndHrtBt").Value = 120
CheckEqual device.ConfigModificationLevel, CLng(3), "the item raised the modification level to 3"
device.Download 1, 1 Or 2
CheckEqual node.Value("nciSndHrtBt"), "04B0", "the property reached the node"
CheckEqual Left(node.LastCommand, 4), "0303", "the phase stays open for the items"
device.Upload 1 Or 2
CheckEqual Left(node.LastCommand, 4), "0403", "the next upload closes it at level 3"
CheckEqual item.Value, CSng(7.5), "the item reads back after the node restarted"

BeginCase "import of a saved configuration"
Set saved = node.SaveConfiguration()
before = node.Value("nciSetpoints")
node.Value("nciSetpoints") = "000000000000000000000000"
Set otherNode = CreateObject("VxSim.Node")
otherNode.LoadDefault
Set other = CreateObject("Vx.VxDef").CreateDeviceManager()
other.Connect otherNode, Nothing
other.Object(1).Variable("nciSetpoints").Element.SubElement("occupied_heat").Value = 10
other.SetConfig saved, 2
other.Object(1).Variable("nciSetpoints").Download 0, True
CheckEqual otherNode.Value("nciSetpoints"), before, "the saved setpoints reach the other node"

BeginCase "a failed upload"
node.FailNext "ReadValue", -1, 0
On Error Resume Next
device.Upload 2
CheckError &H80040301, "Vx.CDeviceVariable.Upload()", "Variable load from device timeout", _
    "Upload of a node that does not answer"
On Error GoTo 0

Finish
