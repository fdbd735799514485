' Members a script reaches only through late binding: a parameter array of subscripts.

Dim node, device, setpoints, message

Set device = ConnectDefault(node)

BeginCase "SubElement with no subscripts is the element itself"
Set setpoints = device.Object(1).Variable("nciSetpoints").Element
Check setpoints.SubElement() Is setpoints, "SubElement()"
Check setpoints.SubElement Is setpoints, "SubElement without parentheses"
Check setpoints.SubElement("") Is setpoints, "an empty first subscript"

BeginCase "SubElement with one subscript"
CheckEqual setpoints.SubElement("standby_heat").Value, CSng(19), "a field by name"
CheckEqual setpoints.SubElement("STANDBY_HEAT").Value, CSng(19), "field names ignore case"

BeginCase "SubElement with several subscripts"
' "0 Normal": the third character of the alarm text is entry 2 of its character array.
Set message = device.Object(0).Variable("nvoAlarmMessage").Element
CheckEqual message.SubElement("ascii_", 2).Value, message.SubElement("ascii_").Value(2), _
    "a field and an entry give the entry"
CheckEqual CLng(message.SubElement("ascii_", 2).Value), CLng(Asc("N")), "the entry's value"
CheckEqual CLng(message.SubElement("ascii_", 0).Value), CLng(Asc("0")), "entry 0"
Dim index
index = 3
CheckEqual CLng(message.SubElement("ascii_", index).Value), CLng(Asc("o")), _
    "an entry held in a script variable (passed by reference)"
CheckEqual CLng(message.SubElement(Array("ascii_", 2)).Value), CLng(Asc("N")), _
    "one array holding the subscripts"
' The integer steps whole entries of the field's type: two temperatures on from standby cooling.
CheckEqual setpoints.SubElement("standby_cool", 2).Value, CSng(21), _
    "an index on a field that is no array"
' A dotted path is only taken as the first subscript; after another one it is skipped.
CheckEqual setpoints.SubElement("occupied_heat", "a.b").Value, CSng(21), "a later dotted path"

BeginCase "a sub-element from a parameter array writes the node's bytes"
message.SubElement("ascii_", 2).Value = Asc("W")
device.Object(0).Variable("nvoAlarmMessage").Download 0, True
CheckEqual Mid(node.Value("nvoAlarmMessage"), 1, 8), "3020576F", "the third byte is W now"

device.Disconnect
Finish
