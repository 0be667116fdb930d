include $(sort $(wildcard $(BR2_EXTERNAL_ZEP_PATH)/package/*/*.mk))
