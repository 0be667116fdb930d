title="registers, I2C, clock, drivers and sound: the transcripts, with what they print, log and ask for"
transcripts="registers factory_rtc bringup voices memory own_device"
. "$here/transcripts.sh"
